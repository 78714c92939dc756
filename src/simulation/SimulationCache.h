#pragma once

#include "Core/Filesystem.h"
#include "Core/Properties.h"
#include "Lib/SharedImageSet.h"

#include <Eigen/Core>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Results of simulations that take long, kept in the folder for temporary files:
///
///     Kelvaris/USImgFormation/SimulatedChannnelDataStream_cache/<version>/<hash>_simus.kvx
///                                                                         <hash>_parametrization.xml
///
/// The hash is that of everything that the result depends on, which is stored beside it and compared in full before a
/// result is used. Results of this version are kept for 14 days from when they were written; those of other versions go
/// with the next store or load. Nothing here fails: what can't be read or written is a result that isn't there. Use it
/// from one thread at a time; several processes may share the folder.
///
/// Scatterer positions and the phantom's offset for each event are in mm.
namespace Kelvaris::US {

class ChannelDataLayout;
class FrameAcquisition;

/// The text of the loaded plugin's version; that of a default version where the code runs outside of a loaded plugin.
std::string thisVersion();

Filesystem::Directory streamCacheDirectory();
/// Created if it is missing.
Filesystem::Directory streamCacheDirectoryThisVersion();

/// All that a result depends on. Amplitudes and pixel type are none of it: they come after the simulation.
Properties parametrization(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                           const std::vector<Eigen::Vector3d>& scatterers, const std::vector<Eigen::Vector3d>& offsets);
std::optional<std::string> serializeParametrization(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                                                    const std::vector<Eigen::Vector3d>& scatterers,
                                                    const std::vector<Eigen::Vector3d>& offsets);
/// The hash of the serialised parametrization in decimal.
std::optional<std::string> cacheFilenameBase(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                                             const std::vector<Eigen::Vector3d>& scatterers,
                                             const std::vector<Eigen::Vector3d>& offsets);

/// Stores the result, a set of one image.
void cacheSimusResult(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                      const std::vector<Eigen::Vector3d>& scatterers, const std::vector<Eigen::Vector3d>& offsets,
                      const SharedImageSet& result);
/// The stored result, a set with an image; null if there is none. A result of other parameters under the same hash is
/// deleted.
std::unique_ptr<SharedImageSet> loadSimusResult(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                                                const std::vector<Eigen::Vector3d>& scatterers,
                                                const std::vector<Eigen::Vector3d>& offsets);

/// Deletes the results of other versions and those of this version that are too old; with `all` the whole cache. A
/// folder counts as this version's if the version's text stands anywhere in its path.
void cleanupSimulationCache(bool all);

} // namespace Kelvaris::US
