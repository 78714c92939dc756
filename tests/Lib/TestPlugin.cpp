// A plugin for the tests of the plugin manager. The environment variable TEST_PLUGIN chooses how it misbehaves.

#include "Lib/AlgorithmFactory.h"
#include "Lib/DataComponentFactory.h"
#include "Lib/KelvarisLibPlugin.h"
#include "support/TestPluginExports.h"

#include <cstdlib>

namespace {

using namespace Kelvaris;

bool misbehaves(std::string_view mode) {
  const char* value = std::getenv("TEST_PLUGIN");
  return value && value == mode;
}

struct Nothing : Algorithm {
  static bool createCompatible(const DataList&, Algorithm** a) {
    if (a) *a = std::make_unique<Nothing>().release();
    return true;
  }
  void compute() override {}
  OwningDataList takeOutput() override { return {}; }
};

struct Mark : DataComponent<Mark> {
  std::string id() const override { return "Test.Mark"; }
  bool operator==(const Mark&) const { return true; }
};

struct TestFactory : AlgorithmFactory {
  TestFactory() : AlgorithmFactory("Test") { registerAlgorithm<Nothing>("Nothing", "Test;Nothing"); }
};

struct TestPlugin : KelvarisLibPlugin {
  std::string author() const override { return "tests"; }
  std::string description() const override { return "for tests"; }
  std::vector<std::string> dependencies() const override {
    if (misbehaves("dependency")) return {"Test.Plugin", "Test.Absent"};
    return {};
  }
  int init() override {
    registerFactories(std::make_unique<TestFactory>(), nullptr, nullptr);
    DataComponentFactory::get().registerComponent("Test.Mark", [] { return std::make_unique<Mark>(); });
    if (misbehaves("throw")) throw std::runtime_error("no memory for the test");
    return misbehaves("fail") ? 7 : 0;
  }
};

} // namespace

KELVARIS_TEST_PLUGIN(TestPlugin, "Test.Plugin", "1.2");
