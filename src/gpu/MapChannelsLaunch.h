#pragma once

#include "CUDA/LaunchShape.h"
#include "gpu/MapChannelsArguments.h"

// Launches of the channel mapping kernel, one function per executor. T is float, float2, short or short2.
namespace Kelvaris::US::GPU {

/// Computes the whole output on all cores and returns when it is done.
template <typename T> void mapChannelsOnCpu(const MapChannelsArguments& arguments);

/// Puts the kernel on the default stream and returns the launch's error (cudaError_t). Only in builds with CUDA.
template <typename T> int mapChannelsOnCuda(const CUDA::LaunchShape& shape, const MapChannelsArguments& arguments);

} // namespace Kelvaris::US::GPU
