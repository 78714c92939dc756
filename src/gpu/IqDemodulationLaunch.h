#pragma once

#include "CUDA/CpuVariant.h"
#include "CUDA/LaunchShape.h"
#include "gpu/IqDemodulationArguments.h"

// Launches of the demodulation kernel, one function per executor. T is short or float; `axis` is that of the lines, 0
// to 2.
namespace Kelvaris::US::GPU {

/// Computes the whole output on all cores, with the vector instructions of `variant`, and returns when it is done.
template <typename T>
void demodulateOnCpu(const IqDemodulationArguments& arguments, int axis,
                     CUDA::CpuVariant variant = CUDA::bestCpuVariant());

/// Puts the kernel on the default stream and returns the launch's error (cudaError_t). Only in builds with CUDA.
template <typename T>
int demodulateOnCuda(const CUDA::LaunchShape& shape, const IqDemodulationArguments& arguments, int axis);

} // namespace Kelvaris::US::GPU
