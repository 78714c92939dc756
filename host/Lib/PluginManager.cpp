#include "Lib/PluginManager.h"

#include "Core/Log.h"
#include "Lib/DataComponentFactory.h"
#include "Lib/FactoryRegistry.h"
#include "Lib/PluginAutoRegistrationGuard.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <utility>

namespace Kelvaris {
namespace fs = std::filesystem;
namespace {

constexpr const char* kCategory = "PluginManager";

/// A library in the process.
class Library {
public:
  explicit Library(const fs::path& path) : m_path(path), m_handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (!m_handle) throw PluginError(fmt::format("\"{}\" can't be loaded: {}", path.string(), dlerror()));
  }
  ~Library() { dlclose(m_handle); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  template <typename Function> Function* function(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(m_handle, name));
  }

  static bool isPresent(const fs::path& path) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle) dlclose(handle);
    return handle != nullptr;
  }

private:
  fs::path m_path;
  void* m_handle;
};

fs::path folderOfHostLibraries() {
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&folderOfHostLibraries), &info) == 0 || !info.dli_fname) return {};
  std::error_code error;
  return fs::weakly_canonical(info.dli_fname, error).parent_path();
}

} // namespace

struct PluginManager::Plugin {
  explicit Plugin(const fs::path& libraryPath) : path(libraryPath), library(libraryPath) {}
  ~Plugin() {
    DataComponentFactory::get().unregisterComponentsOf(plugin.get());
    plugin.reset();
  }
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  fs::path path;
  std::string id;
  Library library; // outlives the object that its code made
  std::unique_ptr<PluginBase> plugin;
};

PluginManager& PluginManager::get() {
  static PluginManager manager;
  return manager;
}

PluginManager::PluginManager() {
  // What plugins register with must outlive them.
  FactoryRegistry::get();
  DataComponentFactory::get();
}

PluginManager::~PluginManager() {
  unloadAll();
}

PluginBase& PluginManager::load(const fs::path& path) {
  std::error_code error;
  const fs::path canonical = fs::weakly_canonical(path, error);
  for (const auto& plugin : m_plugins)
    if (plugin->path == canonical) return *plugin->plugin;
  std::string id;
  std::erase_if(m_gone, [&](const Entry& entry) { return entry.path == canonical; });
  try {
    return loadChecked(canonical, id);
  } catch (const PluginError& failure) {
    m_gone.push_back({Refused, id, canonical, nullptr, failure.what()});
    throw;
  }
}

PluginBase& PluginManager::loadChecked(const fs::path& path, std::string& id) {
  PluginFile::read(path).checkAgainstHost(path);
  auto loaded = std::make_unique<Plugin>(path);

  id = loaded->id = loaded->library.function<const char*()>("kelvarisPluginId")();
  for (const auto& other : m_plugins)
    if (other->id == id)
      throw PluginError(
          fmt::format("\"{}\" has the id {}, as has \"{}\", which is loaded", path.string(), id, other->path.string()));

  loaded->plugin.reset(loaded->library.function<PluginBase*()>("kelvarisCreatePlugin")());
  if (!loaded->plugin) throw PluginError(fmt::format("\"{}\" makes no plugin object", path.string()));

  const std::vector<std::string> present = PluginAutoRegistrationGuard::presentIds();
  std::vector<std::string> missing;
  for (const std::string& dependency : loaded->plugin->dependencies())
    if (std::find(present.begin(), present.end(), dependency) == present.end()) missing.push_back(dependency);
  if (!missing.empty())
    throw PluginError(fmt::format("The plugin {} needs {}, which {} not loaded", id, fmt::join(missing, " and "),
                                  missing.size() == 1 ? "is" : "are"));

  try {
    const DataComponentFactory::OwnerScope scope(loaded->plugin.get());
    if (const int result = loaded->plugin->init(); result != 0)
      throw PluginError(fmt::format("init() of the plugin {} failed with {}", id, result));
  } catch (const PluginError&) {
    throw;
  } catch (const std::exception& exception) {
    // Its text is copied here: the exception's type may belong to the library that is about to go.
    throw PluginError(fmt::format("init() of the plugin {} failed: {}", id, exception.what()));
  } catch (...) {
    throw PluginError(fmt::format("init() of the plugin {} failed with an exception of an unknown type", id));
  }
  Log::debug(kCategory, "Loaded {} from {}", id, path.string());

  // Statics of the library end before those that stand already, this manager among them; the plugin must go earlier.
  std::atexit([] { get().unloadAll(); });
  return *m_plugins.emplace_back(std::move(loaded))->plugin;
}

int PluginManager::loadAll() {
  std::set<fs::path> files;
  for (const fs::path& place : searchPath()) {
    std::error_code error;
    if (!fs::is_directory(place, error)) {
      files.insert(place);
      continue;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(place, error)) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with("lib") && name.ends_with("Plugin.so"))
        files.insert(fs::weakly_canonical(entry.path(), error));
    }
  }
  for (const fs::path& file : files) {
    try {
      load(file);
    } catch (const PluginError& failure) {
      Log::error(kCategory, "{}", failure.what());
    }
  }
  return static_cast<int>(m_plugins.size());
}

std::vector<fs::path> PluginManager::searchPath() {
  std::vector<fs::path> places;
  if (const char* variable = std::getenv("KELVARIS_PLUGIN_PATH"); variable && *variable) {
    std::string_view text = variable;
    while (!text.empty()) {
      const std::string_view place = text.substr(0, text.find(':'));
      if (!place.empty()) places.emplace_back(place);
      text.remove_prefix(std::min(place.size() + 1, text.size()));
    }
    return places;
  }
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  for (const fs::path& place : {program.parent_path().parent_path() / "lib", folderOfHostLibraries()})
    if (fs::is_directory(place, error) && std::find(places.begin(), places.end(), place) == places.end())
      places.push_back(place);
  return places;
}

void PluginManager::unload(const std::string& id) {
  const auto found = std::find_if(m_plugins.begin(), m_plugins.end(), [&](const auto& p) { return p->id == id; });
  if (found == m_plugins.end()) throw PluginError(fmt::format("There is no loaded plugin {}", id));
  const fs::path path = (*found)->path;
  m_plugins.erase(found);
  m_gone.push_back({Unloaded, id, path, nullptr, {}});
  if (Library::isPresent(path))
    throw PluginError(fmt::format("\"{}\" stays in the process: something still uses it", path.string()));
}

void PluginManager::unloadAll() {
  while (!m_plugins.empty())
    m_plugins.pop_back();
}

std::vector<PluginManager::Entry> PluginManager::entries() const {
  std::vector<Entry> all = m_gone;
  for (const auto& plugin : m_plugins)
    all.push_back({Loaded, plugin->id, plugin->path, plugin->plugin.get(), {}});
  return all;
}

} // namespace Kelvaris
