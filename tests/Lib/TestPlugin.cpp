// A plugin for the tests of the plugin manager. The environment variable TEST_PLUGIN chooses how it misbehaves.

#include "Lib/AlgorithmFactory.h"
#include "Lib/DataComponentFactory.h"
#include "Lib/KelvarisLibPlugin.h"
#include "Lib/PluginAutoRegistrationGuard.h"
#include "Lib/PluginInterface.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

using namespace Kelvaris;

const char* id() {
  return "Test.Plugin";
}

std::string mode() {
  const char* value = std::getenv("TEST_PLUGIN");
  return value ? value : "";
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
    if (mode() == "dependency") return {"Test.Plugin", "Test.Absent"};
    return {};
  }
  int init() override {
    registerFactories(std::make_unique<TestFactory>(), nullptr, nullptr);
    DataComponentFactory::get().registerComponent("Test.Mark", [] { return std::make_unique<Mark>(); });
    if (mode() == "throw") throw std::runtime_error("no memory for the test");
    return mode() == "fail" ? 7 : 0;
  }
};

const PluginAutoRegistrationGuard g_guard(&id);

} // namespace

extern "C" {
extern const char* const kelvarisPluginDescriptor;
const char* const kelvarisPluginDescriptor = KELVARIS_PLUGIN_DESCRIPTOR("1.2");
const char* kelvarisPluginId();
const char* kelvarisPluginId() {
  return id();
}
Kelvaris::PluginBase* kelvarisCreatePlugin();
Kelvaris::PluginBase* kelvarisCreatePlugin() {
  return std::make_unique<TestPlugin>().release();
}
}
