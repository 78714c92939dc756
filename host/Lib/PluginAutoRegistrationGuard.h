#pragma once

#include <string>
#include <vector>

namespace Kelvaris {

/// A file-local static of every library that holds a plugin: while it lives, the plugin's id counts as present in the
/// process.
class PluginAutoRegistrationGuard {
public:
  explicit PluginAutoRegistrationGuard(const char* (*id)());
  ~PluginAutoRegistrationGuard();
  PluginAutoRegistrationGuard(const PluginAutoRegistrationGuard&) = delete;
  PluginAutoRegistrationGuard& operator=(const PluginAutoRegistrationGuard&) = delete;

  /// The ids of all guards that live.
  static std::vector<std::string> presentIds();
};

} // namespace Kelvaris
