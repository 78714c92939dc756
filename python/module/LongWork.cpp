#include "module/LongWork.h"

#include "Core/LongWork.h"
#include "module/Gil.h"

#include <pybind11/stl.h>

#include <optional>
#include <string>

namespace Kelvaris::Python {

namespace py = pybind11;

void bindLongWork(py::module_& module) {
  module.def(
      "report_progress",
      [](const std::string& text, std::optional<double> fraction) {
        return withoutGil([&] { return LongWork::report(text, fraction.value_or(-1.0)); });
      },
      py::arg("text"), py::arg("fraction") = py::none(),
      "Tells the program that called the script what the script is doing and which fraction of it is done (0 to 1, "
      "None\n"
      "where that isn't known), several times a second, on the thread of the call: its window is alive only in "
      "here.\n\n"
      "Returns False when the work is to be given up. True where no program asks, as in a Python of your own.");
}

} // namespace Kelvaris::Python
