#include "fuzz/SimulationCacheFuzz.h"

#include "beamforming/BeamformingCases.h"
#include "fuzz/Finding.h"
#include "support/Images.h"

#include "Core/PropertiesIO.h"
#include "model/ChannelDataLayout.h"
#include "simulation/SimulationCache.h"

#include <limits>

namespace Kelvaris::Tests {
namespace {

const US::ChannelDataLayout kLayout;
const std::vector<Eigen::Vector3d> kScatterers = {{0.1, 10.0, -0.0},
                                                  {1e-300, std::numeric_limits<double>::quiet_NaN(), 1e300}};
const std::vector<Eigen::Vector3d> kOffsets = {{0.0, 0.0, 0.0}, {1.0 / 3.0, 0.0, 0.0}};

} // namespace

SimulationCacheFuzz::SimulationCacheFuzz(const TemporaryFolder& folder)
    : m_temporary("TMPDIR", folder.path().string()), m_frame(US::Tests::planeWaves(2)) {
  m_frame.events()[1].receive.startTime = 1e-7; // so that the events themselves are stored
  const auto base = US::cacheFilenameBase(m_frame, kLayout, kScatterers, kOffsets);
  const auto directory = US::streamCacheDirectoryThisVersion().path();
  m_parametrizationFile = directory / (*base + "_parametrization.xml");
  m_resultFile = directory / (*base + "_simus.kvx");

  SharedImageSet result;
  result.setVolumetric(true);
  result.add(std::make_shared<SharedImage>(randomBytes(ImageDescriptor(PixelFloat, 3, 4, 2))));
  US::cacheSimusResult(m_frame, kLayout, kScatterers, kOffsets, result);
  m_parametrization = readFile(m_parametrizationFile);
  m_result = readFile(m_resultFile);
}

bool SimulationCacheFuzz::loads() const {
  const auto result = US::loadSimusResult(m_frame, kLayout, kScatterers, kOffsets);
  if (result && result->size() == 0) throw Finding("a result without an image");
  return result != nullptr;
}

bool SimulationCacheFuzz::loadsParametrization(const std::string& xml) {
  writeFile(m_parametrizationFile, xml);
  if (!std::filesystem::exists(m_resultFile)) writeFile(m_resultFile, m_result);
  if (!loads()) return false;
  if (PropertiesIO::parseXml(xml) != PropertiesIO::parseXml(m_parametrization))
    throw Finding("a result of other parameters was taken");
  return true;
}

bool SimulationCacheFuzz::loadsResult(const std::string& bytes) {
  writeFile(m_parametrizationFile, m_parametrization);
  writeFile(m_resultFile, bytes);
  return loads();
}

} // namespace Kelvaris::Tests
