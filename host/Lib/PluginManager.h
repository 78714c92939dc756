#pragma once

#include "Lib/PluginBase.h"
#include "Lib/PluginFile.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Kelvaris {

/// Loads plugins and holds them. Use it from one thread at a time.
class PluginManager {
public:
  /// What has become of a plugin.
  enum State : int { Refused = 1, Unloaded = 2, Loaded = 3 };

  struct Entry {
    State state;
    std::string id; ///< empty if it was refused before it could be asked
    std::filesystem::path path;
    PluginBase* plugin; ///< null unless loaded
    std::string reason; ///< why it was refused
  };

  static PluginManager& get();
  ~PluginManager();

  /// Reads the descriptor from the file, loads the library, checks that what it depends on is present, and runs its
  /// init(). A plugin that is loaded already is returned as it is. Throws PluginError, with nothing left behind.
  PluginBase& load(const std::filesystem::path& path);

  /// Loads every "lib*Plugin.so" in the folders of searchPath(), and the files that it names. What can't be loaded is
  /// logged and left out. Returns the number of plugins that are loaded.
  int loadAll();

  /// Where loadAll() looks: the entries of the environment variable KELVARIS_PLUGIN_PATH (folders or files, ':'
  /// between), else the folder "../lib" beside the program and the folder of the host's own libraries.
  static std::vector<std::filesystem::path> searchPath();

  /// Ends the plugin and takes its library out of the process, with its factories and component types. All algorithms,
  /// controllers, components and images that came from it must be gone. Throws PluginError for an id that is not
  /// loaded, and if the library stays in the process.
  void unload(const std::string& id);
  /// Unloads all plugins, the last one first.
  void unloadAll();

  /// All plugins that load() was asked for.
  std::vector<Entry> entries() const;

private:
  struct Plugin;
  PluginManager();
  PluginBase& loadChecked(const std::filesystem::path& path, std::string& id);

  std::vector<std::unique_ptr<Plugin>> m_plugins;
  std::vector<Entry> m_gone;
};

} // namespace Kelvaris
