#pragma once

#include "simulation/FrameSizes.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kelvaris::US {

/// What there is to simulate with. The image limits are OpenGL's.
struct SimulationLimits {
  std::uint64_t memoryBytes;        ///< that can still be had
  std::uint64_t storageBufferBytes; ///< the largest table that a shader can read
  int textureSide;                  ///< most channels, and most samples
  int textureSlices;                ///< most events

  /// Those of this machine. Needs a current OpenGL context; throws GL::Error.
  static SimulationLimits ofThisMachine();
};

/// Bytes of main memory that the system can still give to this process: what is available, within the limit that
/// is set for all processes of its container. The largest number if the system doesn't tell.
std::uint64_t availableMemory();

/// How many scatterers' locations are computed and uploaded at once: as many as a table of kMostTableBytes takes (and
/// the limits allow), at least one. A frame's table has events x channels x transmit elements entries of 4 bytes for
/// each scatterer.
std::size_t scatterersAtOnce(const FrameSizes& sizes, const SimulationLimits& limits);
inline constexpr std::uint64_t kMostTableBytes = 64 << 20;

/// Throws std::length_error, before anything is allocated, if the frames' images can't be made within the limits: how
/// much it takes, how much there is, and what would make it less. What counts, for all frames together: for each pixel
/// the image of `bytesPerSample` in main memory, its copy that is emitted and a third while it is brought into another
/// layout, its texture, the texture of each layer with its copy in main memory, and what SIMUS gave; and once the
/// largest location table, twice while it is uploaded.
void checkMemory(const std::vector<FrameSizes>& frames, int bytesPerSample, const SimulationLimits& limits);

} // namespace Kelvaris::US
