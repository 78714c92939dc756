#include "Gui/DefaultAlgorithmController.h"
#include "Gui/StreamAlgorithmExecutorController.h"
#include "Lib/FactoryRegistry.h"
#include "Stream/StreamAlgorithmExecutor.h"

#include <memory>

namespace Kelvaris {
namespace {

std::unique_ptr<AlgorithmController> makeDefaultController(Algorithm* algorithm) {
  if (auto* const executor = dynamic_cast<StreamAlgorithmExecutor*>(algorithm))
    return std::make_unique<StreamAlgorithmExecutorController>(executor);
  return std::make_unique<DefaultAlgorithmController>(algorithm, "", false, false);
}

/// While this library is loaded, algorithms that no factory has a controller for have one of these.
class DefaultControllerMaker {
public:
  DefaultControllerMaker() { FactoryRegistry::get().setDefaultControllerMaker(makeDefaultController); }
  ~DefaultControllerMaker() { FactoryRegistry::get().setDefaultControllerMaker(nullptr); }
  DefaultControllerMaker(const DefaultControllerMaker&) = delete;
  DefaultControllerMaker& operator=(const DefaultControllerMaker&) = delete;
};
const DefaultControllerMaker g_maker;

} // namespace
} // namespace Kelvaris
