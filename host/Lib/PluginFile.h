#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Kelvaris {

/// A plugin that can't be used, and why.
class PluginError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// What a plugin's file says about itself.
struct PluginFile {
  std::string descriptor; ///< the whole text
  std::string hostVersion;
  std::string buildFlags;
  std::string pluginVersion;

  /// Reads the file's bytes; no code of the library runs. Throws PluginError if the file can't be read, is no shared
  /// library for x86-64 Linux, lacks one of the three exports, or has no descriptor of this version of the interface.
  static PluginFile read(const std::filesystem::path& path);

  /// Throws PluginError, with the value found and the value wanted, if the plugin was built against another host
  /// version or with other build flags than this host.
  void checkAgainstHost(const std::filesystem::path& path) const;
};

} // namespace Kelvaris
