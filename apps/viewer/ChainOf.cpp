#include "viewer/ChainOf.h"

#include "viewer/DataItem.h"
#include "viewer/Step.h"

#include "Core/Properties.h"
#include "Lib/FactoryRegistry.h"

namespace Kelvaris::Viewer {
namespace {

/// As `kelvaris` writes ids: without the factory's name.
std::string shortId(const std::string& id) {
  return id.substr(id.find('.') + 1);
}

CommandLine::Step describe(const Step& step) {
  Properties settings;
  step.algorithm().configuration(&settings);
  CommandLine::Step description{shortId(step.descriptor().id), settings.params()};
  // A step on a stream is that of the algorithm that its executor runs.
  std::string name;
  if (step.isStream() && settings.hasParam("algorithmName") && settings.param("algorithmName", name)) {
    const auto executed = FactoryRegistry::get().algorithmDescriptor(name, true);
    const Properties* const config = settings.findSubProperties("algorithmConfig");
    description.id = executed ? shortId(executed->id) : name;
    description.values = config ? config->params() : std::vector<Properties::Param>();
  }
  return description;
}

} // namespace

std::vector<CommandLine::Step> chainOf(const DataItem& item) {
  std::vector<CommandLine::Step> steps;
  const DataItem* current = &item;
  while (current->producer() && !current->producer()->inputs().empty()) {
    steps.insert(steps.begin(), describe(*current->producer()));
    current = current->producer()->inputs().front();
  }
  return steps;
}

} // namespace Kelvaris::Viewer
