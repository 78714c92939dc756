#pragma once

#include "CUDA/KernelBuffer.h"

namespace Kelvaris::US::GPU {

/// The parameters of the demodulation kernel, in its order; told in IqDemodulationKernel.h.
struct IqDemodulationArguments {
  CUDA::KernelBuffer input;
  CUDA::KernelBuffer output;
  CUDA::KernelBuffer signal;
  CUDA::KernelBuffer filter;
  int decimationFactor = 1;
};

} // namespace Kelvaris::US::GPU
