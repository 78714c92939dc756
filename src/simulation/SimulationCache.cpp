#include "simulation/SimulationCache.h"

#include "Core/Log.h"
#include "Core/PropertiesIO.h"
#include "Core/Version.h"
#include "Lib/KelvarisFile.h"
#include "Lib/PluginManager.h"
#include "Lib/PropertiesFile.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"

#include <chrono>
#include <exception>
#include <functional>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "SimulatedChannelDataStream";
constexpr const char* kPluginId = "Kelvaris.USImgFormation";
constexpr std::chrono::days kLifetime{14};

struct CacheFiles {
  Filesystem::File result;
  Filesystem::File parametrization;
};

CacheFiles cacheFiles(const std::string& base) {
  const Filesystem::Directory directory = streamCacheDirectoryThisVersion();
  return {directory.file(base + "_simus.kvx"), directory.file(base + "_parametrization.xml")};
}

} // namespace

std::string thisVersion() {
  for (const PluginManager::Entry& entry : PluginManager::get().entries())
    if (entry.state == PluginManager::Loaded && entry.id == kPluginId) return entry.plugin->version().toString();
  return Utils::Version().toString();
}

Filesystem::Directory streamCacheDirectory() {
  return Filesystem::tempDirectory()
      .directory("Kelvaris")
      .directory("USImgFormation")
      .directory("SimulatedChannnelDataStream_cache"); // the name that caches out there have
}

Filesystem::Directory streamCacheDirectoryThisVersion() {
  Filesystem::Directory directory = streamCacheDirectory().directory(thisVersion());
  directory.create();
  return directory;
}

Properties parametrization(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                           const std::vector<Eigen::Vector3d>& scatterers,
                           const std::vector<Eigen::Vector3d>& offsets) {
  Properties properties;
  frame.configuration(&properties.subProperties("sequence"));
  layout.configuration(&properties.subProperties("layout"));
  properties.setParam("scattererPositions", scatterers);
  properties.setParam("scattererOffsets", offsets);
  return properties;
}

std::optional<std::string> serializeParametrization(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                                                    const std::vector<Eigen::Vector3d>& scatterers,
                                                    const std::vector<Eigen::Vector3d>& offsets) {
  try {
    return PropertiesIO::toXml(parametrization(frame, layout, scatterers, offsets));
  } catch (const std::exception&) {
    Log::debug(kCategory, "Could not serialize the parameters for caching the simulation result");
    return std::nullopt;
  }
}

std::optional<std::string> cacheFilenameBase(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                                             const std::vector<Eigen::Vector3d>& scatterers,
                                             const std::vector<Eigen::Vector3d>& offsets) {
  const auto text = serializeParametrization(frame, layout, scatterers, offsets);
  if (text) return std::to_string(std::hash<std::string>()(*text));
  Log::debug(kCategory, "Could not generate a cache file name for the simulation result");
  return std::nullopt;
}

void cacheSimusResult(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                      const std::vector<Eigen::Vector3d>& scatterers, const std::vector<Eigen::Vector3d>& offsets,
                      const SharedImageSet& result) {
  cleanupSimulationCache(false);
  const auto base = cacheFilenameBase(frame, layout, scatterers, offsets);
  if (!base) return;
  const CacheFiles files = cacheFiles(*base);
  try {
    PropertiesFile::save(files.parametrization.path(), parametrization(frame, layout, scatterers, offsets));
    KelvarisFile::save(files.result.path(), result);
  } catch (const std::exception& error) {
    Log::debug(kCategory, "The simulation result is not kept: {}", error.what());
  }
}

std::unique_ptr<SharedImageSet> loadSimusResult(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                                                const std::vector<Eigen::Vector3d>& scatterers,
                                                const std::vector<Eigen::Vector3d>& offsets) {
  cleanupSimulationCache(false);
  const auto base = cacheFilenameBase(frame, layout, scatterers, offsets);
  if (!base) return nullptr;
  const CacheFiles files = cacheFiles(*base);
  if (!files.result.exists() || !files.parametrization.exists()) return nullptr;

  Properties stored;
  try {
    stored = PropertiesFile::load(files.parametrization.path());
  } catch (const std::exception&) {
    Log::debug(kCategory, "Could not load the parametrization file for the simulation result");
    return nullptr;
  }
  // As texts, so that NaN equals NaN and no digit is lost.
  if (parametrization(frame, layout, scatterers, offsets) != stored) {
    Log::debug(kCategory, "The cached simulation result does not match the current parameters");
    files.result.remove();
    files.parametrization.remove();
    return nullptr;
  }
  try {
    auto result = KelvarisFile::load(files.result.path());
    if (result->size() > 0) return result;
    Log::debug(kCategory, "The cached simulation result {} holds no image", files.result.path().string());
  } catch (const std::exception& error) {
    Log::debug(kCategory, "Could not load the cached simulation result: {}", error.what());
  }
  return nullptr;
}

void cleanupSimulationCache(bool all) {
  if (all) {
    streamCacheDirectory().removeRecursive();
    return;
  }
  const std::string version = thisVersion();
  for (const Filesystem::Directory& directory : streamCacheDirectory().directories())
    if (directory.path().string().find(version) == std::string::npos) directory.removeRecursive();

  using std::chrono::duration_cast;
  const auto cutoff =
      duration_cast<std::chrono::seconds>((std::chrono::system_clock::now() - kLifetime).time_since_epoch()).count();
  for (const Filesystem::File& file : streamCacheDirectoryThisVersion().files())
    if (const auto modified = file.lastModified(); modified && *modified < cutoff) file.remove();
}

} // namespace Kelvaris::US
