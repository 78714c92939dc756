// A plugin with the algorithms of TestAlgorithms.h, for tests of the whole program.
#include "apps/TestAlgorithms.h"

#include "Lib/KelvarisLibPlugin.h"
#include "support/TestPluginExports.h"

namespace Kelvaris::Tests {
namespace {

class TestPlugin : public KelvarisLibPlugin {
public:
  std::string author() const override { return "Kelvaris"; }
  std::string description() const override { return "Small algorithms for tests"; }
  int init() override {
    registerFactories(std::make_unique<TestAlgorithmFactory>(), nullptr, nullptr);
    return 0;
  }
};

} // namespace
} // namespace Kelvaris::Tests

KELVARIS_TEST_PLUGIN(Kelvaris::Tests::TestPlugin, "Kelvaris.Test", "");
