#pragma once

#include "CUDA/CpuVariant.h"
#include "CUDA/LaunchShape.h"
#include "gpu/BeamformingArguments.h"

// Launches of the beamforming kernel, one function per executor. T is short, float, short2 or float2.
namespace Kelvaris::US::GPU {

/// Runs the kernel on all cores, with the vector instructions of `variant`, and returns when it is done. Large images
/// are beamformed from a reordered copy of the channel data, of the same size. Throws like DeviceMemory.
template <typename T>
void beamformOnCpu(const CUDA::LaunchShape& shape, const BeamformingArguments& arguments,
                   CUDA::CpuVariant variant = CUDA::bestCpuVariant());

/// Puts the kernel on the default stream and returns the launch's error (cudaError_t). Only in builds with CUDA.
template <typename T> int beamformOnCuda(const CUDA::LaunchShape& shape, const BeamformingArguments& arguments);

} // namespace Kelvaris::US::GPU
