#pragma once

#include "beamforming/BeamformingCases.h"
#include "fuzz/Finding.h"
#include "support/EnvironmentVariable.h"
#include "support/Images.h"
#include "support/TemporaryFolder.h"

#include "Core/PropertiesIO.h"
#include "model/ChannelDataLayout.h"
#include "simulation/SimulationCache.h"

#include <cmath>

namespace Kelvaris::Tests {

/// Loads a kept simulation of which one of the two files is another than was stored. The cache lies in a folder of its
/// own.
class SimulationCacheFuzz {
public:
  explicit SimulationCacheFuzz(const TemporaryFolder& folder) : m_temporary("TMPDIR", folder.path().string()) {
    m_frame.events()[1].receive.startTime = 1e-7; // so that the events themselves are stored
    const auto base = US::cacheFilenameBase(m_frame, m_layout, m_scatterers, m_offsets);
    const auto directory = US::streamCacheDirectoryThisVersion().path();
    m_parametrizationFile = directory / (*base + "_parametrization.xml");
    m_resultFile = directory / (*base + "_simus.kvx");

    SharedImageSet stored;
    stored.setVolumetric(true);
    stored.add(std::make_shared<SharedImage>(randomBytes(ImageDescriptor(PixelFloat, 3, 4, 2))));
    US::cacheSimusResult(m_frame, m_layout, m_scatterers, m_offsets, stored);
    parametrization = readFile(m_parametrizationFile);
    result = readFile(m_resultFile);
  }

  /// True if the simulation is found with these files in place of the stored ones. Throws Finding if it should not have
  /// been.
  bool loads(const std::string& xml, const std::string& bytes) const {
    writeFile(m_parametrizationFile, xml);
    writeFile(m_resultFile, bytes);
    const auto loaded = US::loadSimusResult(m_frame, m_layout, m_scatterers, m_offsets);
    if (!loaded) return false;
    if (loaded->size() == 0) throw Finding("a result without an image");
    if (PropertiesIO::parseXml(xml) != PropertiesIO::parseXml(parametrization))
      throw Finding("a result of other parameters was taken");
    return true;
  }

  std::string parametrization, result; ///< as they were stored

private:
  EnvironmentVariable m_temporary;
  US::FrameAcquisition m_frame = US::Tests::planeWaves(2);
  US::ChannelDataLayout m_layout;
  std::vector<Eigen::Vector3d> m_scatterers = {{0.1, 10.0, -0.0}, {1e-300, std::nan(""), 1e300}};
  std::vector<Eigen::Vector3d> m_offsets = {{0.0, 0.0, 0.0}, {1.0 / 3.0, 0.0, 0.0}};
  std::filesystem::path m_parametrizationFile, m_resultFile;
};

} // namespace Kelvaris::Tests
