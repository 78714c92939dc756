// A plugin with the algorithms of TestAlgorithms.h, for tests of the whole program.
#include "apps/TestAlgorithms.h"

#include "Lib/KelvarisLibPlugin.h"
#include "Lib/PluginAutoRegistrationGuard.h"
#include "Lib/PluginInterface.h"

namespace Kelvaris::Tests {
namespace {

const char* testPluginId() {
  return "Kelvaris.Test";
}

class TestPlugin : public KelvarisLibPlugin {
public:
  std::string author() const override { return "Kelvaris"; }
  std::string description() const override { return "Small algorithms for tests"; }
  int init() override {
    registerFactories(std::make_unique<TestAlgorithmFactory>(), nullptr, nullptr);
    return 0;
  }
};

const PluginAutoRegistrationGuard guard(&testPluginId);

} // namespace
} // namespace Kelvaris::Tests

extern "C" {
__attribute__((visibility("default"))) const char* kelvarisPluginDescriptor = KELVARIS_PLUGIN_DESCRIPTOR("");
__attribute__((visibility("default"))) const char* kelvarisPluginId() {
  return Kelvaris::Tests::testPluginId();
}
__attribute__((visibility("default"))) Kelvaris::PluginBase* kelvarisCreatePlugin() {
  return new Kelvaris::Tests::TestPlugin();
}
}
