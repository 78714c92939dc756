#include "simulation/FakePythonPlugin.h"

#include "Lib/PluginAutoRegistrationGuard.h"
#include "Lib/PluginInterface.h"

namespace {

const char* id() {
  return "Test.Python";
}

const Kelvaris::PluginAutoRegistrationGuard g_guard(&id);

} // namespace

extern "C" {
extern const char* const kelvarisPluginDescriptor;
const char* const kelvarisPluginDescriptor = KELVARIS_PLUGIN_DESCRIPTOR("");
const char* kelvarisPluginId() {
  return id();
}
Kelvaris::PluginBase* kelvarisCreatePlugin() {
  return std::make_unique<Kelvaris::Tests::FakePythonPlugin>().release();
}
}
