#pragma once

#include "Core/Resource.h"
#include "Lib/KelvarisLibPlugin.h"

#include <memory>
#include <string>
#include <vector>

namespace Kelvaris::US {

/// The plugin object: hands the host everything that the library contributes.
class KelvarisUSImgFormationPlugin : public KelvarisLibPlugin {
public:
  KelvarisUSImgFormationPlugin();
  ~KelvarisUSImgFormationPlugin() override;

  /// "Kelvaris.USImgFormation".
  static const char* id();

  std::string author() const override;
  std::string description() const override;
  std::vector<std::string> dependencies() const override;
  /// Registers both factories, the resource repository and the data component types. Returns 0.
  int init() override;

private:
  std::unique_ptr<Resource::Repository> m_repository;
};

} // namespace Kelvaris::US

extern "C" {
/// A new plugin object, owned by the caller.
Kelvaris::PluginBase* kelvarisCreatePlugin();
const char* kelvarisPluginId();
/// What the library was built against; can be read without running code of the library.
extern const char* const kelvarisPluginDescriptor;
}
