#pragma once

#include "support/EnvironmentVariable.h"
#include "support/TemporaryFolder.h"

#include "model/FrameAcquisition.h"

#include <filesystem>
#include <string>

namespace Kelvaris::Tests {

/// Loads a kept simulation of which one of the two files is another than was stored. The cache lies in a folder of its
/// own.
class SimulationCacheFuzz {
public:
  explicit SimulationCacheFuzz(const TemporaryFolder& folder);

  /// The files as they were stored.
  const std::string& parametrization() const { return m_parametrization; }
  const std::string& result() const { return m_result; }

  /// True if the simulation is found with this file in place of the stored one. Throws Finding if it should not have
  /// been.
  bool loadsParametrization(const std::string& xml);
  bool loadsResult(const std::string& bytes);

private:
  bool loads() const;

  EnvironmentVariable m_temporary;
  US::FrameAcquisition m_frame;
  std::filesystem::path m_parametrizationFile, m_resultFile;
  std::string m_parametrization, m_result;
};

} // namespace Kelvaris::Tests
