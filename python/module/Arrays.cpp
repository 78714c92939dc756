#include "module/Arrays.h"

#include "module/Gil.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <utility>

namespace Kelvaris::Python {
namespace {

std::string shapeText(const py::object& array) {
  return py::str(array.attr("shape"));
}

/// The block behind a writable C-contiguous array; it keeps the array alive.
std::shared_ptr<void> samplesOf(const py::object& array) {
  auto view = std::make_unique<Py_buffer>();
  if (PyObject_GetBuffer(array.ptr(), view.get(), PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE) != 0)
    throw py::error_already_set();
  void* const first = view->buf;
  return {first, [held = view.release()](void*) {
            runUnderGil([held] {
              PyBuffer_Release(held);
              std::default_delete<Py_buffer>()(held);
            });
          }};
}

struct ArrayType {
  char kind; ///< as numpy.dtype.kind
  py::ssize_t bytes;
  int pixelType;
};

constexpr ArrayType kArrayTypes[] = {
    {'i', 1, PixelInt8},   {'u', 1, PixelUInt8}, {'i', 2, PixelInt16},  {'u', 2, PixelUInt16}, {'i', 4, PixelInt32},
    {'u', 4, PixelUInt32}, {'f', 4, PixelFloat}, {'f', 8, PixelDouble}, {'f', 2, PixelHalf},   {'c', 8, PixelFloat},
};

int pixelTypeOf(const py::object& dtype) {
  const auto kind = py::cast<std::string>(dtype.attr("kind")).at(0);
  const auto bytes = py::cast<py::ssize_t>(dtype.attr("itemsize"));
  for (const ArrayType& type : kArrayTypes)
    if (type.kind == kind && type.bytes == bytes) return type.pixelType;
  throw py::type_error(fmt::format("An array of {} makes no image; expected int8, uint8, int16, uint16, int32, uint32, "
                                   "float16, float32, float64 or complex64 (array.astype(...) converts)",
                                   py::cast<std::string>(py::str(dtype))));
}

const char* formatOf(SampleType type) {
  switch (type) {
  case SampleType::Int8:
    return "b";
  case SampleType::UInt8:
    return "B";
  case SampleType::Int16:
    return "h";
  case SampleType::UInt16:
    return "H";
  case SampleType::Int32:
    return "i";
  case SampleType::UInt32:
    return "I";
  case SampleType::Int64:
    return "q";
  case SampleType::UInt64:
    return "Q";
  case SampleType::Float:
    return "f";
  case SampleType::Double:
    break;
  }
  return "d";
}

} // namespace

py::module_ numpy() {
  return py::module_::import("numpy");
}

py::object SampleView::array() const {
  return numpy().attr("asarray")(*this);
}

SampleView viewOf(int pixelType) {
  SampleView view{};
  dispatchPixelType(pixelType, [&]<typename T>() {
    view.format = std::is_same_v<T, signed char>      ? "b"
                  : std::is_same_v<T, unsigned char>  ? "B"
                  : std::is_same_v<T, short>          ? "h"
                  : std::is_same_v<T, unsigned short> ? "H"
                  : std::is_same_v<T, int>            ? "i"
                  : std::is_same_v<T, unsigned int>   ? "I"
                  : std::is_same_v<T, float>          ? "f"
                                                      : "d";
    view.bytes = sizeof(T);
  });
  return view;
}

ImageSamples imageSamples(const py::object& object, bool half, bool copy) {
  const py::module_ np = numpy();
  py::object array = np.attr("asarray")(object);
  py::object dtype = array.attr("dtype");
  int pixelType = pixelTypeOf(dtype);
  const bool complex = py::cast<std::string>(dtype.attr("kind")) == "c";

  auto shape = py::cast<std::vector<py::ssize_t>>(py::list(array.attr("shape")));
  const std::size_t rank = shape.size();
  if (rank < 2 || rank > 4)
    throw py::value_error(fmt::format("An array of shape {} makes no image; expected (height, width), (slices, height, "
                                      "width) or (slices, height, width, channels)",
                                      shapeText(array)));
  if (rank == 2) shape.insert(shape.begin(), 1);
  if (shape.size() == 3) shape.push_back(1);
  if (complex && shape[3] != 1)
    throw py::value_error(fmt::format("An array of shape {} and complex samples makes no image; expected one channel, "
                                      "which becomes two (real and imaginary part)",
                                      shapeText(array)));
  if (complex) shape[3] = 2;
  for (const py::ssize_t extent : shape)
    if (extent < 1 || extent > INT_MAX)
      throw py::value_error(fmt::format("An array of shape {} makes no image; expected 1 to {} samples along each axis",
                                        shapeText(array), INT_MAX));

  if (half && pixelType != PixelFloat && pixelType != PixelHalf)
    throw py::type_error(fmt::format("half=True is for arrays of float32 and float16, not of {}",
                                     py::cast<std::string>(py::str(dtype))));
  if (half) pixelType = PixelHalf;
  const py::object native =
      pixelType == PixelHalf && !complex ? py::object(py::str("float32")) : py::object(dtype.attr("newbyteorder")("="));
  array = copy ? np.attr("array")(array, native, py::arg("order") = "C")
               : np.attr("require")(array, native, py::make_tuple("C", "A", "W"));

  ImageSamples result;
  result.descriptor = ImageDescriptor(pixelType, static_cast<int>(shape[2]), static_cast<int>(shape[1]),
                                      static_cast<int>(shape[0]), static_cast<int>(shape[3]));
  result.samples = samplesOf(array);
  return result;
}

std::vector<double> rowsOf(const py::object& object, py::ssize_t columns, const char* what) {
  const py::module_ np = numpy();
  const py::object array = np.attr("asarray")(object, "float64");
  const auto shape = py::cast<std::vector<py::ssize_t>>(py::list(array.attr("shape")));
  if (shape.size() != 2 || shape[1] != columns)
    throw py::value_error(fmt::format("{} of shape {}; expected ({}, {})", what, shapeText(array),
                                      shape.empty() ? 0 : shape[0], columns));
  return py::cast<std::vector<double>>(py::list(array.attr("ravel")().attr("tolist")()));
}

py::object arrayOf(std::vector<double> values, std::vector<py::ssize_t> shape) {
  const auto owned = std::make_shared<std::vector<double>>(std::move(values));
  return SampleView{{owned, owned->data()}, "d", sizeof(double), std::move(shape), true}.array();
}

py::object arrayOf(const SampleArray& samples) {
  const auto owned = withoutGil([&] {
    return std::make_shared<std::vector<std::byte>>(
        samples.read(SampleArray::Extents(samples.shape().size(), 0), samples.shape()));
  });
  std::vector<py::ssize_t> shape(samples.shape().begin(), samples.shape().end());
  if (samples.firstIndexFastest()) std::reverse(shape.begin(), shape.end());
  const py::object array = SampleView{{owned, owned->data()},
                                      formatOf(samples.type()),
                                      static_cast<py::ssize_t>(sampleBytes(samples.type())),
                                      std::move(shape),
                                      true}
                               .array();
  return samples.firstIndexFastest() ? py::object(array.attr("T")) : array;
}

void bindArrays(py::module_& module) {
  py::class_<SampleView>(module, "_SampleView", py::buffer_protocol(),
                         "Samples of the host, seen by numpy.asarray(). Arrays on it keep them alive.")
      .def_buffer([](SampleView& view) {
        std::vector<py::ssize_t> strides(view.shape.size(), view.bytes);
        for (std::size_t i = strides.size(); i-- > 1;)
          strides[i - 1] = strides[i] * view.shape[i];
        return py::buffer_info(view.samples.get(), view.bytes, view.format, static_cast<py::ssize_t>(view.shape.size()),
                               view.shape, strides, !view.writable);
      });
}

} // namespace Kelvaris::Python
