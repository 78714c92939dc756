#include "gpu/MapChannelsKernel.h"

#include "gpu/MapChannelsLaunch.h"

namespace Kelvaris::US::GPU {

template <typename T>
__global__ void mapChannelsAndTransposeKernel(KernelBuffer input, KernelBuffer output, KernelBuffer table,
                                              int channelsAxis, int fastTimeAxis, int slowTimeAxis) {
  mapChannelsThread<T>({input, output, table, channelsAxis, fastTimeAxis, slowTimeAxis},
                       static_cast<int>(blockIdx.x * blockDim.x + threadIdx.x),
                       static_cast<int>(blockIdx.y * blockDim.y + threadIdx.y),
                       static_cast<int>(blockIdx.z * blockDim.z + threadIdx.z));
}

template <typename T> int mapChannelsOnCuda(const CUDA::LaunchShape& s, const MapChannelsArguments& a) {
  const dim3 grid(s.grid.x, s.grid.y, s.grid.z), block(s.block.x, s.block.y, s.block.z);
  mapChannelsAndTransposeKernel<T>
      <<<grid, block>>>(a.input, a.output, a.table, a.channelsAxis, a.fastTimeAxis, a.slowTimeAxis);
  return static_cast<int>(cudaGetLastError());
}

template int mapChannelsOnCuda<float>(const CUDA::LaunchShape&, const MapChannelsArguments&);
template int mapChannelsOnCuda<float2>(const CUDA::LaunchShape&, const MapChannelsArguments&);
template int mapChannelsOnCuda<short>(const CUDA::LaunchShape&, const MapChannelsArguments&);
template int mapChannelsOnCuda<short2>(const CUDA::LaunchShape&, const MapChannelsArguments&);

} // namespace Kelvaris::US::GPU
