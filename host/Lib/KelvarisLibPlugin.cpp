#include "Lib/KelvarisLibPlugin.h"

#include "Lib/DataComponentFactory.h"
#include "Lib/FactoryRegistry.h"

#include <utility>

namespace Kelvaris {

KelvarisLibPlugin::~KelvarisLibPlugin() {
  FactoryRegistry::get().remove(this);
  DataComponentFactory::get().unregisterComponentsOf(this);
}

void KelvarisLibPlugin::registerFactories(std::unique_ptr<AlgorithmFactory> algorithms,
                                          std::unique_ptr<AlgorithmControllerFactory> controllers,
                                          std::unique_ptr<DataAnnotationFactory> /*annotations*/) {
  FactoryRegistry::get().remove(this);
  FactoryRegistry::get().add(std::move(algorithms), std::move(controllers), this);
}

} // namespace Kelvaris
