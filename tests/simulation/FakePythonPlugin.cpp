#include "simulation/FakePythonPlugin.h"
#include "support/TestPluginExports.h"

KELVARIS_TEST_PLUGIN(Kelvaris::Tests::FakePythonPlugin, "Test.Python", "");
