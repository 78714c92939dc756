#include "gpu/BeamformingKernel.h"

#include "gpu/BeamformingLaunch.h"

namespace Kelvaris::US::GPU {

template <typename T>
__global__ void beamformingKernel(KernelBuffer channelData, KernelBuffer samplePositions, KernelBuffer output,
                                  const EventInfo* events, const float3* elementPositions, int numElements,
                                  KernelBuffer elementToChannel, float fNumber, float outputValueScaling, float pitch,
                                  BeamformerType beamformerType, Workmode workmode, int channelsAxis, int fastTimeAxis,
                                  int slowTimeAxis, ElementSearch search) {
  const BeamformingArguments arguments{channelData,        samplePositions, output,           events,
                                       elementPositions,   numElements,     elementToChannel, fNumber,
                                       outputValueScaling, pitch,           beamformerType,   workmode,
                                       channelsAxis,       fastTimeAxis,    slowTimeAxis,     search};
  beamformingThread<T, float>(arguments, static_cast<int>(blockIdx.x * blockDim.x + threadIdx.x),
                              static_cast<int>(blockIdx.y * blockDim.y + threadIdx.y),
                              static_cast<int>(blockIdx.z * blockDim.z + threadIdx.z));
}

template <typename T> int beamformOnCuda(const CUDA::LaunchShape& s, const BeamformingArguments& a) {
  const dim3 grid(s.grid.x, s.grid.y, s.grid.z), block(s.block.x, s.block.y, s.block.z);
  beamformingKernel<T><<<grid, block>>>(a.channelData, a.samplePositions, a.output, a.events, a.elementPositions,
                                        a.numElements, a.elementToChannel, a.fNumber, a.outputValueScaling, a.pitch,
                                        a.beamformerType, a.workmode, a.channelsAxis, a.fastTimeAxis, a.slowTimeAxis,
                                        a.search);
  return static_cast<int>(cudaPeekAtLastError());
}

template int beamformOnCuda<short>(const CUDA::LaunchShape&, const BeamformingArguments&);
template int beamformOnCuda<float>(const CUDA::LaunchShape&, const BeamformingArguments&);
template int beamformOnCuda<short2>(const CUDA::LaunchShape&, const BeamformingArguments&);
template int beamformOnCuda<float2>(const CUDA::LaunchShape&, const BeamformingArguments&);

} // namespace Kelvaris::US::GPU
