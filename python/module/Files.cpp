#include "module/Files.h"

#include "Core/PropertiesIO.h"
#include "Lib/KelvarisFile.h"
#include "Lib/PluginManager.h"
#include "Lib/PngWriter.h"
#include "Lib/SampleFile.h"
#include "US/PixelSize.h"
#include "module/Arrays.h"
#include "module/Gil.h"
#include "module/Log.h"
#include "module/PropertiesDict.h"

#include <fmt/format.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Kelvaris::Python {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void throwOsError(PyObject* type, const std::string& text) {
  PyErr_SetString(type, text.c_str());
  throw py::error_already_set();
}

/// `f()`, whose std::runtime_error becomes an OSError.
template <typename F> auto reading(const fs::path& path, F&& f) {
  if (std::error_code error; !fs::exists(path, error))
    throwOsError(PyExc_FileNotFoundError, fmt::format("There is no file \"{}\"", path.string()));
  try {
    return withoutGil(f);
  } catch (const std::runtime_error& failure) {
    throwOsError(PyExc_OSError, failure.what());
  }
}

std::shared_ptr<SharedImageSet> load(const fs::path& path, const std::optional<std::vector<int>>& images) {
  const LoggedReasons reasons;
  return reading(path, [&]() -> std::shared_ptr<SharedImageSet> {
    if (!images) return KelvarisFile::load(path);
    const KelvarisFile::Reader reader(path);
    std::shared_ptr<SharedImageSet> set = reader.set().clone(3);
    for (const int i : *images) {
      set->add(reader.image(i), reader.timestamp(i));
      set->elementwiseComponents().components(set->size() - 1) = reader.components(i);
    }
    return set;
  });
}

void save(const fs::path& path, const SharedImageSet& images) {
  try {
    withoutGil([&] { KelvarisFile::save(path, images); });
  } catch (const std::runtime_error& failure) {
    throwOsError(PyExc_OSError, failure.what());
  }
}

void savePicture(const fs::path& path, const SharedImageSet& images, int image, int slice,
                 const std::optional<std::array<unsigned char, 3>>& maskColor, bool squarePixels) {
  try {
    withoutGil([&] {
      const SharedImage& pixels = images.get(image);
      PngWriter::checkSupported(pixels.descriptor());
      PendingFile file(path);
      PngWriter::write(
          file, pixels, slice,
          {.pixelSize = US::prescanPixelSize(images, image), .squarePixels = squarePixels, .maskColor = maskColor});
      file.commit();
    });
  } catch (const std::runtime_error& failure) {
    throwOsError(PyExc_OSError, failure.what());
  }
}

py::dict readProperties(const fs::path& path) {
  const LoggedReasons reasons;
  const auto properties = reading(path, [&] {
    std::ifstream stream(path, std::ios::binary);
    return PropertiesIO::fromXml(std::string(std::istreambuf_iterator<char>(stream), {}));
  });
  if (!properties) throw py::value_error(fmt::format("\"{}\" can't be read: {}", path.string(), reasons.text()));
  return dictOf(*properties);
}

std::vector<PluginManager::Entry> loadPlugins() {
  withoutGil([] { PluginManager::get().loadAll(); });
  return PluginManager::get().entries();
}

PluginManager::Entry loadPlugin(const fs::path& path) {
  const PluginBase& plugin = withoutGil([&]() -> PluginBase& { return PluginManager::get().load(path); });
  for (PluginManager::Entry& entry : PluginManager::get().entries())
    if (entry.plugin == &plugin) return entry;
  throw std::logic_error("a loaded plugin is not among the entries");
}

} // namespace

void bindFiles(py::module_& module) {
  py::class_<PluginManager::Entry>(module, "Plugin", "What has become of a plugin.")
      .def_readonly("id", &PluginManager::Entry::id)
      .def_property_readonly("path", [](const PluginManager::Entry& entry) { return entry.path.string(); })
      .def_property_readonly("loaded",
                             [](const PluginManager::Entry& entry) { return entry.state == PluginManager::Loaded; })
      .def_readonly("reason", &PluginManager::Entry::reason, "Why it is not loaded")
      .def("__repr__", [](const PluginManager::Entry& entry) {
        return fmt::format("<kelvaris.Plugin {}{}>", entry.id.empty() ? entry.path.string() : entry.id,
                           entry.state == PluginManager::Loaded ? "" : ", not loaded");
      });
  module.def(
      "load_plugins", loadPlugins,
      "Loads the plugins beside this module, or those that the environment variable KELVARIS_PLUGIN_PATH names.\n\n"
      "Returns all plugins that were asked for. One that can't be loaded is logged, and says so.");
  module.def("load_plugin", loadPlugin, py::arg("path"),
             "Loads one plugin library; RuntimeError says what is wrong with it.");
  module.def(
      "plugins", [] { return PluginManager::get().entries(); }, "All plugins that were asked for.");

  module.def("load", load, py::arg("path"), py::arg("images") = py::none(),
             "The images of a .kvx file, or those with the given indices, as a SharedImageSet.\n\n"
             "Raises FileNotFoundError, OSError for what is no such file, IndexError.");
  module.def(
      "save", save, py::arg("path"), py::arg("images"),
      "Writes a SharedImageSet as a .kvx file, which appears under its name when it is complete. Raises OSError.");
  module.def(
      "save_picture", savePicture, py::arg("path"), py::arg("images"), py::kw_only(), py::arg("image") = 0,
      py::arg("slice") = 0, py::arg("mask_color") = py::none(), py::arg("square_pixels") = true,
      "Writes one slice of an image of type uint8 as PNG, with square pixels where their size in mm is known.\n\n"
      "Invalid pixels are transparent, or have mask_color, (red, green, blue) from 0 to 255. Raises ValueError for\n"
      "images that make no picture, OSError.");
  module.def(
      "read_samples",
      [](const fs::path& path, const std::string& name) {
        const auto samples = reading(path, [&] { return SampleFile::open(path)->array(name); });
        return arrayOf(*samples);
      },
      py::arg("path"), py::arg("name") = "",
      "An array of a file of samples: HDF5, MATLAB, NumPy. Its shape is the one that the file's own tools show.\n\n"
      "name may be missing where there is only one array. Raises OSError, which lists what there is.");
  module.def(
      "read_properties", readProperties, py::arg("path"),
      "The properties in an XML file as a dict, for example an acquisition. Sub-properties are lists of dicts.\n\n"
      "Raises FileNotFoundError, ValueError.");
}

} // namespace Kelvaris::Python
