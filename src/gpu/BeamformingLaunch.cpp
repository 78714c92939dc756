#include "gpu/BeamformingLaunch.h"

#include "CUDA/CpuLaunch.h"

namespace Kelvaris::US::GPU {

// The builds of BeamformingKernelCpu.cpp.
#define KELVARIS_VARIANT(arch)                                                                                         \
  namespace arch {                                                                                                     \
  template <typename T> void beamformTile(const BeamformingArguments& arguments, const CUDA::Tile& tile);              \
  int tileHeight();                                                                                                    \
  }
KELVARIS_VARIANT(cpu_v2)
KELVARIS_VARIANT(cpu_v3)
KELVARIS_VARIANT(cpu_v4)
#undef KELVARIS_VARIANT

template <typename T>
void beamformOnCpu(const CUDA::LaunchShape& shape, const BeamformingArguments& arguments, CUDA::CpuVariant variant) {
  const auto beamformTile =
      CUDA::chooseVariant(variant, cpu_v2::beamformTile<T>, cpu_v3::beamformTile<T>, cpu_v4::beamformTile<T>);
  const auto tileHeight = CUDA::chooseVariant(variant, cpu_v2::tileHeight, cpu_v3::tileHeight, cpu_v4::tileHeight);
  CUDA::forEachTile(shape, tileHeight(), [&](const CUDA::Tile& tile) { beamformTile(arguments, tile); });
}

template void beamformOnCpu<short>(const CUDA::LaunchShape&, const BeamformingArguments&, CUDA::CpuVariant);
template void beamformOnCpu<float>(const CUDA::LaunchShape&, const BeamformingArguments&, CUDA::CpuVariant);
template void beamformOnCpu<CUDA::short2>(const CUDA::LaunchShape&, const BeamformingArguments&, CUDA::CpuVariant);
template void beamformOnCpu<CUDA::float2>(const CUDA::LaunchShape&, const BeamformingArguments&, CUDA::CpuVariant);

} // namespace Kelvaris::US::GPU
