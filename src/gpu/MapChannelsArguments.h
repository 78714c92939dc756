#pragma once

#include "CUDA/KernelBuffer.h"

namespace Kelvaris::US::GPU {

/// The parameters of the channel mapping kernel, in its order; told in MapChannelsKernel.h.
struct MapChannelsArguments {
  CUDA::KernelBuffer input;
  CUDA::KernelBuffer output;
  CUDA::KernelBuffer table;
  int channelsAxis = 0;
  int fastTimeAxis = 1;
  int slowTimeAxis = 2;
};

} // namespace Kelvaris::US::GPU
