#pragma once

#include "CUDA/CpuVariant.h"
#include "CUDA/LaunchShape.h"
#include "gpu/ConvolutionFilter1DArguments.h"

// Launches of the convolution kernel, one function per executor. T is char, unsigned char, short, unsigned short, int,
// unsigned int or float; `axis` is that of the lines, 0 to 2.
namespace Kelvaris::US::GPU {

/// Computes the whole output on all cores, with the vector instructions of `variant`, and returns when it is done.
template <typename T>
void convolveOnCpu(const ConvolutionFilter1DArguments& arguments, int axis,
                   CUDA::CpuVariant variant = CUDA::bestCpuVariant());

/// Puts the kernel on the default stream and returns the launch's error (cudaError_t). Only in builds with CUDA.
template <typename T>
int convolveOnCuda(const CUDA::LaunchShape& shape, const ConvolutionFilter1DArguments& arguments, int axis);

} // namespace Kelvaris::US::GPU
