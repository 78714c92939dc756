#include "module/Algorithms.h"

#include "Core/Parameter.h"
#include "Lib/FactoryRegistry.h"
#include "Stream/ImageStream.h"
#include "module/AlgorithmObject.h"
#include "module/Errors.h"
#include "module/Gil.h"
#include "module/PropertiesDict.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

#include <map>
#include <optional>
#include <utility>

namespace Kelvaris::Python {
namespace {

using Descriptor = AlgorithmFactory::Descriptor;
using DataPointers = std::vector<std::shared_ptr<Data>>;

/// What an algorithm offers to set, and how it stands now.
struct ParameterInfo {
  std::string name, type;
  py::object value, defaultValue;
  std::map<std::string, std::string> hints;
};

std::string typeName(ParameterType type) {
  switch (type) {
  case ParameterType::Bool:
    return "bool";
  case ParameterType::Int:
    return "int";
  case ParameterType::Double:
    return "float";
  case ParameterType::OptionalDouble:
    return "float or None";
  case ParameterType::Vector2i:
    return "two ints";
  case ParameterType::Enum:
    return "enum";
  case ParameterType::Text:
    break;
  }
  return "str";
}

std::vector<ParameterInfo> describe(const AlgorithmObject& algorithm) {
  const py::dict values = algorithm.values();
  std::vector<ParameterInfo> infos;
  for (const ParameterBase* parameter : algorithm.parameters())
    infos.push_back({parameter->name(), typeName(parameter->type()), values[py::str(parameter->name())],
                     valueOf(*parameter, parameter->defaultText()), parameter->attributes()});
  return infos;
}

/// None, one piece of data, or several.
DataPointers dataOf(const py::object& data) {
  if (data.is_none()) return {};
  if (py::isinstance<Data>(data)) return {py::cast<std::shared_ptr<Data>>(data)};
  DataPointers list;
  if (py::isinstance<py::list>(data) || py::isinstance<py::tuple>(data)) {
    for (const py::handle element : data) {
      if (!py::isinstance<Data>(element)) break;
      list.push_back(py::cast<std::shared_ptr<Data>>(element));
    }
    if (list.size() == py::len(data)) return list;
  }
  throw py::type_error(
      fmt::format("{} is no data; expected a SharedImageSet, a stream, another Data, a list of them, or "
                  "None",
                  py::cast<std::string>(py::repr(data))));
}

std::vector<Descriptor> algorithms(const py::object& data) {
  const DataPointers held = dataOf(data);
  DataList list;
  for (const auto& element : held)
    list.add(element.get());
  return withoutGil([&] {
    return data.ptr() == Py_None ? FactoryRegistry::get().algorithmDescriptors()
                                 : FactoryRegistry::get().compatibleDescriptors(list);
  });
}

std::unique_ptr<AlgorithmObject> create(const std::string& id, const py::object& data, const py::kwargs& values) {
  auto algorithm = std::make_unique<AlgorithmObject>(id, dataOf(data));
  if (!values.empty()) algorithm->set(values);
  return algorithm;
}

} // namespace

void bindAlgorithms(py::module_& module) {
  const auto error = py::register_exception<AlgorithmError>(module, "AlgorithmError", PyExc_RuntimeError);
  error.attr("__doc__") = "An algorithm could not do its work; the text has the reason that it logged.";
  const auto canceled = py::register_exception<Canceled>(module, "Canceled", PyExc_RuntimeError);
  canceled.attr("__doc__") = "The progress callback asked for the end of the work.";

  py::class_<Descriptor>(module, "AlgorithmInfo", "What can be created with create().")
      .def_readonly("id", &Descriptor::id)
      .def_readonly("category", &Descriptor::category, "Menu path with ';' between its levels")
      .def_property_readonly("name", &Descriptor::displayName)
      .def_property_readonly(
          "expert", [](const Descriptor& d) { return (d.attributes & Descriptor::Expert) != 0; },
          "True for algorithms that a menu may hide")
      .def("__repr__", [](const Descriptor& d) { return fmt::format("<kelvaris.AlgorithmInfo {}>", d.id); });

  py::class_<ParameterInfo>(module, "Parameter", "A parameter of an algorithm as it stands.")
      .def_readonly("name", &ParameterInfo::name)
      .def_readonly("type", &ParameterInfo::type,
                    "\"bool\", \"int\", \"float\", \"float or None\", \"two ints\", \"enum\" or \"str\"")
      .def_readonly("value", &ParameterInfo::value)
      .def_readonly("default", &ParameterInfo::defaultValue)
      .def_readonly("hints", &ParameterInfo::hints,
                    "Texts for forms: suffix (the unit), min, max, step, decimals, values (of an enum)")
      .def("__repr__", [](const ParameterInfo& p) {
        return fmt::format("<kelvaris.Parameter {}={}>", p.name, py::cast<std::string>(py::repr(p.value)));
      });

  py::class_<AlgorithmObject>(module, "Algorithm",
                              "One processing step on some data, which it keeps alive. Made by create().")
      .def_property_readonly("id", [](const AlgorithmObject& a) { return a.info().id; })
      .def_property_readonly("name", [](const AlgorithmObject& a) { return a.info().displayName; })
      .def_property_readonly("parameters", &AlgorithmObject::values, "The values by name; a copy: set() changes them")
      .def("describe", describe, "The parameters with types, defaults and hints, as a list of Parameter.")
      .def(
          "set", [](AlgorithmObject& algorithm, const py::kwargs& values) { algorithm.set(values); },
          "Sets parameters by name: set(fNumber=1.5). All or, where one is refused, none.\n\n"
          "Raises TypeError for values of another type and ValueError for unknown names and values out of range; both\n"
          "say what was expected.")
      .def_property(
          "configuration", &AlgorithmObject::configuration, &AlgorithmObject::configure,
          "All settings as a dict; assign some to change them. For what set() doesn't reach, such as those of\n"
          "the stream that an algorithm opens.")
      .def("compute", &AlgorithmObject::compute, py::arg("progress") = py::none(),
           "Runs the algorithm, other Python threads meanwhile, and returns its output: a Data, a list of several, or\n"
           "None.\n\n"
           "progress(text, step, steps) is called before each step; it cancels by returning False or by raising, as\n"
           "does Ctrl-C between two steps. Raises AlgorithmError with the logged reason, Canceled, what progress "
           "raised.")
      .def("__repr__", [](const AlgorithmObject& a) { return fmt::format("<kelvaris.Algorithm {}>", a.info().id); });

  module.def("algorithms", algorithms, py::arg("data") = py::none(),
             "The algorithms that there are, or those that work on the data, as a list of AlgorithmInfo.");
  module.def("create", create, py::arg("id"), py::arg("data") = py::none(), py::pos_only(),
             "create(id, data=None, /, **parameters): the algorithm of that id, with or without the factory's name in\n"
             "front, for a Data, a list of several, or None.\n\n"
             "Raises ValueError, naming what there is, for an unknown id and for data on which it doesn't work; see\n"
             "Algorithm.set() for the parameters.");
  module.def(
      "run",
      [](const std::string& id, const py::object& data, const py::kwargs& values) {
        return create(id, data, values)->compute(py::none());
      },
      py::arg("id"), py::arg("data") = py::none(), py::pos_only(),
      "run(id, data=None, /, **parameters): create(...).compute().");
}

} // namespace Kelvaris::Python
