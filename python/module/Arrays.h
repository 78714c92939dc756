#pragma once

#include "Lib/ImageDescriptor.h"
#include "Lib/SampleArray.h"

#include <pybind11/pybind11.h>

#include <cstddef>
#include <memory>
#include <vector>

/// NumPy arrays, reached through Python's buffer interface and numpy's own functions alone, so that the module works
/// with every version of NumPy and is importable without.
namespace Kelvaris::Python {

namespace py = pybind11;

/// Samples in C order that somebody owns, as an object with the buffer interface. An array on it keeps the owner alive.
struct SampleView {
  std::shared_ptr<void> samples; ///< the first one; null only for an empty array
  const char* format;            ///< as Python's module struct has them
  py::ssize_t bytes;             ///< of one sample
  std::vector<py::ssize_t> shape;
  bool writable;

  /// The numpy array on these samples.
  py::object array() const;
};

/// numpy itself. Throws ImportError where it isn't installed.
py::module_ numpy();

/// The format and the sample size of pixels in main memory.
SampleView viewOf(int pixelType);

/// An image's samples, taken from an array.
struct ImageSamples {
  ImageDescriptor descriptor;
  std::shared_ptr<void> samples; ///< the array's own where its layout allows, else a copy
};

/// Reads anything that numpy.asarray() takes: (height, width), (slices, height, width) or (slices, height, width,
/// channels). Complex samples become two channels. With `half` the pixel type is half float. Throws TypeError and
/// ValueError that say what was expected.
ImageSamples imageSamples(const py::object& array, bool half, bool copy);

/// `count` rows of `columns` numbers. Throws ValueError for other shapes; `what` names them in the message.
std::vector<double> rowsOf(const py::object& array, py::ssize_t columns, const char* what);

/// A new array with the numbers.
py::object arrayOf(std::vector<double> values, std::vector<py::ssize_t> shape);
/// A new array with what `samples` holds, in the shape and the order in which the file's own tools show it.
py::object arrayOf(const SampleArray& samples);

void bindArrays(py::module_& module);

} // namespace Kelvaris::Python
