// Built once per instruction set: see kelvaris_cpu_variants in cmake.
#include "gpu/BeamformingKernelLanes.h"

#include "CUDA/CpuLaunch.h"

namespace Kelvaris::US::GPU::KELVARIS_ARCH {

/// The threads of a tile of tileHeight() rows.
template <typename T> void beamformTile(const BeamformingArguments& arguments, const CUDA::Tile& tile) {
  for (int x = tile.xBegin; x < tile.xEnd; ++x)
    beamformingThread<T, Lanes>(arguments, x, tile.yBegin, tile.z);
}

int tileHeight();
int tileHeight() {
  return Lanes::count;
}

template void beamformTile<short>(const BeamformingArguments&, const CUDA::Tile&);
template void beamformTile<float>(const BeamformingArguments&, const CUDA::Tile&);
template void beamformTile<short2>(const BeamformingArguments&, const CUDA::Tile&);
template void beamformTile<float2>(const BeamformingArguments&, const CUDA::Tile&);

} // namespace Kelvaris::US::GPU::KELVARIS_ARCH
