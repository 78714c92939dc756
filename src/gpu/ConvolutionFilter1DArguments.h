#pragma once

#include "CUDA/KernelBuffer.h"

namespace Kelvaris::US::GPU {

/// The parameters of the convolution kernel, in its order; told in ConvolutionFilter1DKernel.h.
struct ConvolutionFilter1DArguments {
  CUDA::KernelBuffer input;
  CUDA::KernelBuffer output;
  CUDA::KernelBuffer filter;
};

} // namespace Kelvaris::US::GPU
