#include "gpu/ConvolutionFilter1DKernel.h"

#include "gpu/ConvolutionFilter1DLaunch.h"

namespace Kelvaris::US::GPU {

/// T is the type of a sample, the second type that of a tap.
template <typename T, typename, int mode>
__global__ void convolutionFilterKernel1D(KernelBuffer input, KernelBuffer output, KernelBuffer filter) {
  convolutionThread<T, mode>({input, output, filter}, static_cast<int>(blockIdx.x * blockDim.x + threadIdx.x),
                             static_cast<int>(blockIdx.y * blockDim.y + threadIdx.y),
                             static_cast<int>(blockIdx.z * blockDim.z + threadIdx.z));
}

template <typename T> int convolveOnCuda(const CUDA::LaunchShape& s, const ConvolutionFilter1DArguments& a, int axis) {
  const dim3 grid(s.grid.x, s.grid.y, s.grid.z), block(s.block.x, s.block.y, s.block.z);
  const auto kernel = axis == 0   ? convolutionFilterKernel1D<T, float, 0>
                      : axis == 1 ? convolutionFilterKernel1D<T, float, 1>
                                  : convolutionFilterKernel1D<T, float, 2>;
  kernel<<<grid, block>>>(a.input, a.output, a.filter);
  return static_cast<int>(cudaPeekAtLastError());
}

template int convolveOnCuda<char>(const CUDA::LaunchShape&, const ConvolutionFilter1DArguments&, int);
template int convolveOnCuda<unsigned char>(const CUDA::LaunchShape&, const ConvolutionFilter1DArguments&, int);
template int convolveOnCuda<short>(const CUDA::LaunchShape&, const ConvolutionFilter1DArguments&, int);
template int convolveOnCuda<unsigned short>(const CUDA::LaunchShape&, const ConvolutionFilter1DArguments&, int);
template int convolveOnCuda<int>(const CUDA::LaunchShape&, const ConvolutionFilter1DArguments&, int);
template int convolveOnCuda<unsigned int>(const CUDA::LaunchShape&, const ConvolutionFilter1DArguments&, int);
template int convolveOnCuda<float>(const CUDA::LaunchShape&, const ConvolutionFilter1DArguments&, int);

} // namespace Kelvaris::US::GPU
