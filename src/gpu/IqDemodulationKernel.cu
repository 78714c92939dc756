#include "gpu/IqDemodulationKernel.h"

#include "gpu/IqDemodulationLaunch.h"

namespace Kelvaris::US::GPU {

template <typename T, typename, int mode>
__global__ void demodulationKernel(KernelBuffer input, KernelBuffer output, KernelBuffer signal, KernelBuffer filter,
                                   int decimationFactor) {
  demodulationThread<T, mode>(
      {input, output, signal, filter, decimationFactor}, static_cast<int>(blockIdx.x * blockDim.x + threadIdx.x),
      static_cast<int>(blockIdx.y * blockDim.y + threadIdx.y), static_cast<int>(blockIdx.z * blockDim.z + threadIdx.z));
}

template <typename T> int demodulateOnCuda(const CUDA::LaunchShape& s, const IqDemodulationArguments& a, int axis) {
  const dim3 grid(s.grid.x, s.grid.y, s.grid.z), block(s.block.x, s.block.y, s.block.z);
  const auto kernel = axis == 0   ? demodulationKernel<T, T, 0>
                      : axis == 1 ? demodulationKernel<T, T, 1>
                                  : demodulationKernel<T, T, 2>;
  kernel<<<grid, block>>>(a.input, a.output, a.signal, a.filter, a.decimationFactor);
  return static_cast<int>(cudaPeekAtLastError());
}

template int demodulateOnCuda<short>(const CUDA::LaunchShape&, const IqDemodulationArguments&, int);
template int demodulateOnCuda<float>(const CUDA::LaunchShape&, const IqDemodulationArguments&, int);

} // namespace Kelvaris::US::GPU
