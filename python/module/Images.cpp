#include "module/Images.h"

#include "Lib/IntensityMask.h"
#include "Lib/PointCloud.h"
#include "Lib/SharedImageSet.h"
#include "module/Arrays.h"
#include "module/Components.h"
#include "module/Gil.h"
#include "module/Names.h"
#include "module/PropertiesDict.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace Kelvaris::Python {
namespace {

struct ImageOptions {
  std::array<double, 3> spacing = {1.0, 1.0, 1.0};
  bool metric = true;
  double shift = 0.0;
  double scale = 1.0;
  std::optional<double> maskValue;
  bool half = false;
  bool copy = false;
};

std::shared_ptr<SharedImage> makeImage(const py::object& array, const ImageOptions& options) {
  ImageSamples taken = imageSamples(array, options.half, options.copy);
  if (std::any_of(options.spacing.begin(), options.spacing.end(), [](double s) { return !(s > 0.0); }))
    throw py::value_error(fmt::format("The spacing ({}, {}, {}) is no spacing; expected three positive numbers",
                                      options.spacing[0], options.spacing[1], options.spacing[2]));
  taken.descriptor.setSpacing({options.spacing[0], options.spacing[1], options.spacing[2]});
  taken.descriptor.setMetric(options.metric);
  taken.descriptor.setShift(options.shift);
  taken.descriptor.setScale(options.scale);
  auto image = std::make_shared<SharedImage>(
      std::shared_ptr<Image>(MemImage::create(taken.descriptor, std::move(taken.samples))));
  if (options.maskValue)
    image->setMask(std::make_shared<IntensityMask>(taken.descriptor.pixelType(), *options.maskValue));
  return image;
}

std::vector<py::ssize_t> shapeOf(const ImageDescriptor& d) {
  return {d.slices(), d.height(), d.width(), d.channels()};
}

std::shared_ptr<MemImage> memOf(const SharedImage& image) {
  return withoutGil([&] { return image.mem(); });
}

py::object arrayOf(SharedImage& image, bool writable) {
  const std::shared_ptr<MemImage> mem = memOf(image);
  if (writable) withoutGil([&] { image.setDirtyMem(); });
  SampleView view = viewOf(mem->descriptor().pixelType());
  view.samples = {mem, mem->data()};
  view.shape = shapeOf(mem->descriptor());
  view.writable = writable;
  return view.array();
}

py::object validOf(const SharedImage& image) {
  const std::shared_ptr<MemImage> mem = memOf(image);
  const ImageDescriptor& d = mem->descriptor();
  auto valid = std::make_shared<std::vector<unsigned char>>(
      static_cast<std::size_t>(d.slices()) * static_cast<std::size_t>(d.height()) * static_cast<std::size_t>(d.width()),
      1);
  if (const auto mask = image.mask())
    withoutGil([&] {
      unsigned char* row = valid->data();
      for (int z = 0; z < d.slices(); ++z)
        for (int y = 0; y < d.height(); ++y, row += d.width())
          mask->evaluate(*mem, 0, y, z, d.width(), row);
    });
  return SampleView{{valid, valid->data()}, "?", 1, {d.slices(), d.height(), d.width()}, true}.array();
}

std::string reprOf(const SharedImage& image) {
  return fmt::format("<kelvaris.SharedImage: {}>", image.descriptor().toString());
}

std::string reprOf(const SharedImageSet& set) {
  return fmt::format("<kelvaris.SharedImageSet: {} image{}{}>", set.size(), set.size() == 1 ? "" : "s",
                     set.size() ? ", the first " + set.get(0).descriptor().toString() : "");
}

int checkedIndex(const SharedImageSet& set, py::ssize_t index) {
  const py::ssize_t from0 = index < 0 ? index + set.size() : index;
  if (from0 < 0 || from0 >= set.size())
    throw py::index_error(fmt::format("There is no image {} in a set of {}", index, set.size()));
  return static_cast<int>(from0);
}

DataComponentList& componentsOf(SharedImageSet& set, const std::optional<py::ssize_t>& image) {
  return image ? set.elementwiseComponents().components(checkedIndex(set, *image)) : set.components();
}

void append(SharedImageSet& set, const py::object& image, double timestamp, const py::dict& components,
            const ImageOptions& options) {
  auto shared =
      py::isinstance<SharedImage>(image) ? py::cast<std::shared_ptr<SharedImage>>(image) : makeImage(image, options);
  DataComponentList list;
  for (const auto& [id, properties] : components)
    setComponent(list, py::cast<std::string>(id), py::cast<py::dict>(properties));
  set.add(std::move(shared), timestamp);
  set.elementwiseComponents().components(set.size() - 1) = std::move(list);
}

std::shared_ptr<SharedImageSet> part(const SharedImageSet& set, const py::slice& slice) {
  std::size_t start = 0, stop = 0, step = 0, count = 0;
  if (!slice.compute(static_cast<std::size_t>(set.size()), &start, &stop, &step, &count)) throw py::error_already_set();
  std::shared_ptr<SharedImageSet> result = set.clone(3);
  for (std::size_t i = 0; i < count; ++i, start += step) {
    const int index = static_cast<int>(start);
    result->add(set.shared(index), set.timestamp(index));
    result->elementwiseComponents().components(result->size() - 1) = set.elementwiseComponents().components(index);
  }
  return result;
}

void bindImage(py::module_& module) {
  py::class_<SharedImage, std::shared_ptr<SharedImage>>(
      module, "SharedImage",
      "One image: samples of shape (slices, height, width, channels), and how they map to millimetres and values.\n\n"
      "\"channels\" are the components of a sample (two for IQ data), never the channels of an array. Channel data "
      "have\n"
      "events along the slices, time along the height and receive channels along the width.")
      .def(
          py::init([](const py::object& array, std::array<double, 3> spacing, bool metric, double shift, double scale,
                      std::optional<double> maskValue, bool half, bool copy) {
            return makeImage(array, {spacing, metric, shift, scale, maskValue, half, copy});
          }),
          py::arg("array"), py::kw_only(), py::arg("spacing") = std::array{1.0, 1.0, 1.0}, py::arg("metric") = true,
          py::arg("shift") = 0.0, py::arg("scale") = 1.0, py::arg("mask_value") = py::none(), py::arg("half") = false,
          py::arg("copy") = false,
          "An image on an array of shape (height, width), (slices, height, width) or (slices, height, width, "
          "channels).\n\n"
          "The image uses the array's own samples, and keeps them alive, if they lie in C order, aligned, in the\n"
          "machine's byte order and writable; a copy of them else, and with copy=True. Types: int8 to int32, uint8 to\n"
          "uint32, float32, float64; float16 becomes a half-float image (32 bits in memory), as float32 does with\n"
          "half=True; complex64 becomes two channels.\n\n"
          "spacing: (x, y, z), the distance of samples along width, height and slices, mm if metric.\n"
          "real value = sample / scale - shift. mask_value: samples that mean \"invalid here\", may be nan.\n"
          "Raises TypeError for other types and ValueError for other shapes.")
      .def_property_readonly(
          "shape",
          [](const SharedImage& image) {
            const ImageDescriptor& d = image.descriptor();
            return py::make_tuple(d.slices(), d.height(), d.width(), d.channels());
          },
          "(slices, height, width, channels)")
      .def_property_readonly(
          "pixel_type",
          [](const SharedImage& image) { return ImageDescriptor::pixelTypeName(image.descriptor().pixelType()); },
          "\"int16\", \"float\", \"half\" and the like")
      .def_property_readonly(
          "spacing",
          [](const SharedImage& image) {
            const auto& s = image.descriptor().spacing();
            return py::make_tuple(s.x(), s.y(), s.z());
          },
          "(x, y, z): distance of samples along width, height and slices; mm if metric")
      .def_property_readonly(
          "metric", [](const SharedImage& image) { return image.descriptor().isMetric(); },
          "True if the spacing is in mm")
      .def_property_readonly(
          "shift", [](const SharedImage& image) { return image.descriptor().shift(); },
          "real value = sample / scale - shift")
      .def_property_readonly(
          "scale", [](const SharedImage& image) { return image.descriptor().scale(); },
          "real value = sample / scale - shift")
      .def_property(
          "matrix",
          [](const SharedImage& image) {
            std::vector<double> values;
            for (int row = 0; row < 4; ++row)
              for (int column = 0; column < 4; ++column)
                values.push_back(image.matrix()(row, column));
            return Python::arrayOf(std::move(values), {4, 4});
          },
          [](SharedImage& image, const py::object& matrix) {
            const std::vector<double> values = rowsOf(matrix, 4, "A matrix");
            if (values.size() != 16) throw py::value_error("A matrix of another shape than (4, 4)");
            image.setMatrix(Eigen::Map<const Eigen::Matrix<double, 4, 4, Eigen::RowMajor>>(values.data()));
          },
          "From image to world coordinates, an array of shape (4, 4); a copy: assign to change it")
      .def_property_readonly(
          "mask_value",
          [](const SharedImage& image) -> std::optional<double> {
            const auto mask = std::dynamic_pointer_cast<const IntensityMask>(image.mask());
            return mask ? std::optional(mask->value()) : std::nullopt;
          },
          "The sample that means \"invalid here\"; None without one")
      .def("array", arrayOf, py::arg("writable") = false,
           "The samples as an array of shape (slices, height, width, channels) on the image's own memory, which stays\n"
           "as long as the array does. An image on a device is read back first.\n\n"
           "With writable=True it may be written to. Call changed() after writing.")
      .def(
          "__array__",
          [](SharedImage& image, const py::object& dtype, const py::object& copy) {
            const py::object array = arrayOf(image, false);
            py::object converted = dtype.is_none() ? array : array.attr("astype")(dtype, py::arg("copy") = false);
            return !copy.is_none() && py::cast<bool>(copy) ? py::object(converted.attr("copy")()) : converted;
          },
          py::arg("dtype") = py::none(), py::arg("copy") = py::none(), "For numpy.asarray(image): array().")
      .def(
          "changed", [](SharedImage& image) { withoutGil([&] { image.setDirtyMem(); }); },
          "Says that samples have been written to: copies of the image on devices are made anew.")
      .def("valid", validOf, "Which pixels are valid: a new bool array of shape (slices, height, width).")
      .def("__repr__", [](const SharedImage& image) { return reprOf(image); });
}

void bindImageSet(py::module_& module) {
  py::class_<SharedImageSet, Data, std::shared_ptr<SharedImageSet>>(
      module, "SharedImageSet",
      "Images in order, with components (descriptions by id) and properties of the set, and components of each image.")
      .def(py::init(
               [](const py::iterable& images, const std::string& modality, bool volumetric, const std::string& name) {
                 auto set = std::make_shared<SharedImageSet>();
                 set->setModality(modalityFromName(modality));
                 set->setVolumetric(volumetric);
                 set->setName(name);
                 for (const py::handle image : images)
                   append(*set, py::reinterpret_borrow<py::object>(image), 0.0, {}, {});
                 return set;
               }),
           py::arg("images") = py::tuple(), py::kw_only(), py::arg("modality") = "ultrasound",
           py::arg("volumetric") = false, py::arg("name") = "",
           "A set of SharedImages and of arrays that become some. volumetric: images of one slice count as volumes,\n"
           "too, as channel data do.")
      .def(
          "append",
          [](SharedImageSet& set, const py::object& image, double timestamp, const py::dict& components,
             std::array<double, 3> spacing, bool metric, double shift, double scale, std::optional<double> maskValue,
             bool half, bool copy) {
            append(set, image, timestamp, components, {spacing, metric, shift, scale, maskValue, half, copy});
          },
          py::arg("image"), py::kw_only(), py::arg("timestamp") = 0.0, py::arg("components") = py::dict(),
          py::arg("spacing") = std::array{1.0, 1.0, 1.0}, py::arg("metric") = true, py::arg("shift") = 0.0,
          py::arg("scale") = 1.0, py::arg("mask_value") = py::none(), py::arg("half") = false, py::arg("copy") = false,
          "Adds a SharedImage, or one made of an array with the other arguments (see SharedImage), with its timestamp\n"
          "in ms and its components, a dict of dicts by id. On an error the set is as before.")
      .def("__len__", &SharedImageSet::size)
      .def(
          "__getitem__",
          [](const SharedImageSet& set, py::ssize_t index) { return set.shared(checkedIndex(set, index)); },
          py::arg("index"))
      .def("__getitem__", part, py::arg("part"), "A new set of the same images.")
      .def_property_readonly(
          "timestamps",
          [](const SharedImageSet& set) {
            py::list list;
            for (int i = 0; i < set.size(); ++i)
              list.append(set.timestamp(i));
            return list;
          },
          "One an image, in ms; a copy")
      .def(
          "set_timestamp",
          [](SharedImageSet& set, py::ssize_t image, double milliseconds) {
            set.setTimestamp(milliseconds, checkedIndex(set, image));
          },
          py::arg("image"), py::arg("milliseconds"))
      .def_property(
          "modality", [](const SharedImageSet& set) { return modalityName(set.modality()); },
          [](SharedImageSet& set, const std::string& name) { set.setModality(modalityFromName(name)); },
          "\"ultrasound\" or \"unknown\"")
      .def_property("volumetric", &SharedImageSet::isVolumetric, &SharedImageSet::setVolumetric,
                    "True if images of one slice count as volumes, too")
      .def_property(
          "properties", [](const SharedImageSet& set) { return dictOf(set.properties()); },
          [](SharedImageSet& set, const py::dict& values) { set.properties() = propertiesOf(values); },
          "Properties of the set as a dict; a copy: assign to change them")
      .def(
          "components",
          [](SharedImageSet& set, std::optional<py::ssize_t> image) { return dictOf(componentsOf(set, image)); },
          py::arg("image") = py::none(),
          "The components of an image, or of the set as a whole, as a dict of dicts by id; a copy.")
      .def(
          "set_component",
          [](SharedImageSet& set, const std::string& id, const py::dict& values, std::optional<py::ssize_t> image) {
            setComponent(componentsOf(set, image), id, values);
          },
          py::arg("id"), py::arg("values"), py::arg("image") = py::none(),
          "Puts a component into the list of an image, or of the set as a whole, in place of one of its type.\n\n"
          "Raises ValueError for an id that no loaded library knows, and for values that make no such component.")
      .def(
          "remove_component",
          [](SharedImageSet& set, const std::string& id, std::optional<py::ssize_t> image) {
            removeComponent(componentsOf(set, image), id);
          },
          py::arg("id"), py::arg("image") = py::none(), "Raises KeyError if there is none.")
      .def("__repr__", [](const SharedImageSet& set) { return reprOf(set); });
}

void bindPointCloud(py::module_& module) {
  py::class_<PointCloud, Data, std::shared_ptr<PointCloud>>(module, "PointCloud",
                                                            "Points in space (mm), with a weight each or none.")
      .def(py::init([](const py::object& points, std::optional<std::vector<double>> weights, const std::string& name) {
             const std::vector<double> values = rowsOf(points, 3, "Points");
             std::vector<Eigen::Vector3d> list;
             for (std::size_t i = 0; i < values.size(); i += 3)
               list.emplace_back(values[i], values[i + 1], values[i + 2]);
             auto cloud = std::make_shared<PointCloud>(std::move(list), name);
             cloud->setWeights(std::move(weights));
             return cloud;
           }),
           py::arg("points"), py::kw_only(), py::arg("weights") = py::none(), py::arg("name") = "",
           "points: shape (n, 3). weights: n numbers, or None.")
      .def("__len__", &PointCloud::size)
      .def_property_readonly(
          "points",
          [](const std::shared_ptr<PointCloud>& cloud) {
            static_assert(sizeof(Eigen::Vector3d) == 3 * sizeof(double));
            const auto* first = reinterpret_cast<const double*>(cloud->points().data());
            return SampleView{{cloud, const_cast<double*>(first)}, "d", sizeof(double), {cloud->size(), 3}, false}
                .array();
          },
          "An array of shape (n, 3) on the points themselves, read-only")
      .def_property(
          "weights",
          [](const PointCloud& cloud) -> py::object {
            if (!cloud.weights()) return py::none();
            return Python::arrayOf(*cloud.weights(), {cloud.size()});
          },
          &PointCloud::setWeights, "An array of n numbers, or None; a copy: assign to change them")
      .def("__repr__", [](const PointCloud& cloud) {
        return fmt::format("<kelvaris.PointCloud: {} point{}{}>", cloud.size(), cloud.size() == 1 ? "" : "s",
                           cloud.weights() ? ", weighted" : "");
      });
}

} // namespace

void bindImages(py::module_& module) {
  py::class_<Data, std::shared_ptr<Data>>(module, "Data", "Anything that algorithms take and give.")
      .def_property("name", &Data::name, &Data::setName)
      .def_property_readonly(
          "kind", [](const Data& data) { return kindName(data.kind()); },
          "\"image\", \"volume\" (more than one slice, or volumetric), \"images\", \"volumes\",\n"
          "\"image stream\", \"volume stream\", \"other stream\" or \"unknown\"")
      .def_property_readonly(
          "modality", [](const Data& data) { return modalityName(data.modality()); }, "\"ultrasound\" or \"unknown\"");
  bindImage(module);
  bindImageSet(module);
  bindPointCloud(module);
}

} // namespace Kelvaris::Python
