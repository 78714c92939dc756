#pragma once

#include "Core/Version.h"

#include <string>
#include <vector>

namespace Kelvaris {

/// What a plugin library gives the host: made by its kelvarisCreatePlugin(), asked for its dependencies, then init().
class PluginBase {
public:
  explicit PluginBase(Utils::Version version = {}) : m_version(version) {}
  virtual ~PluginBase() = default;
  PluginBase(const PluginBase&) = delete;
  PluginBase& operator=(const PluginBase&) = delete;

  virtual std::string author() const = 0;
  virtual std::string description() const = 0;
  /// Ids of the plugins that must be present.
  virtual std::vector<std::string> dependencies() const { return {}; }
  /// Brings in what the plugin contributes. 0 on success.
  virtual int init() = 0;

  Utils::Version version() const { return m_version; }

private:
  Utils::Version m_version;
};

} // namespace Kelvaris
