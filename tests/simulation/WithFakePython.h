#pragma once

#include "simulation/FakePythonPlugin.h"
#include "support/EnvironmentVariable.h"
#include "support/TemporaryFolder.h"

#include "Core/Resource.h"
#include "Lib/PluginManager.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"

namespace Kelvaris::Tests {

/// While it lives, the host has the fake interpreter and the script, and the cache of simulations lies in a folder of
/// the test's own.
class WithFakePython {
public:
  WithFakePython() { Resource::addRepository(&m_repository); }
  ~WithFakePython() {
    if (m_loaded) PluginManager::get().unload("Test.Python");
  }
  WithFakePython(const WithFakePython&) = delete;
  WithFakePython& operator=(const WithFakePython&) = delete;

  FakePythonPlugin& plugin() { return m_plugin; }
  FakePython& python() { return m_plugin.python; }
  void withdrawPlugin() {
    m_loaded = false;
    PluginManager::get().unload("Test.Python");
  }
  void withdrawScript() { Resource::removeRepository(&m_repository); }
  const TemporaryFolder& temporary() const { return m_temporary; }

private:
  const TemporaryFolder m_temporary;
  const EnvironmentVariable m_variable{"TMPDIR", m_temporary.path().string()};
  const Repository_KelvarisUSImgFormationPlugin m_repository;
  bool m_loaded = true;
  FakePythonPlugin& m_plugin = dynamic_cast<FakePythonPlugin&>(PluginManager::get().load(FAKE_PYTHON_PLUGIN));
};

} // namespace Kelvaris::Tests
