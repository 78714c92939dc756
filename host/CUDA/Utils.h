#pragma once

#include "CUDA/Device.h"
#include "CUDA/LaunchShape.h"

#include <Eigen/Core>

namespace Kelvaris::CUDA::Utils {

/// The three sizes of a launch, from an Eigen vector or a Dim3.
struct EitherVec3iOrDim3 {
  Dim3 value;
  EitherVec3iOrDim3(const Eigen::Vector3i& v) : value{v.x(), v.y(), v.z()} {} // NOLINT: meant to convert
  EitherVec3iOrDim3(Dim3 v) : value(v) {}                                     // NOLINT
};

/// Grid and block for one thread per element of `extent`, each size at least 1. Up to a warp of threads is one block of
/// just that shape. Above, the block grows from one thread by doubling the axis with the largest remaining even number
/// of blocks (ties to x, then y), or where none is even the largest odd one, rounding up; until it has a warp of
/// threads and either the most that it may have (a third of maxThreadsPerBlock if divisible by 3) or no more blocks
/// remain than a multiprocessor holds. The grid may cover more than the extent: kernels discard the threads beyond it.
LaunchShape kernelBlocks(const EitherVec3iOrDim3& extent, const Device& device = Device::current());

/// The same search, as the filters know it.
inline LaunchShape blockSizeForImage(const EitherVec3iOrDim3& extent, const Device& device = Device::current()) {
  return kernelBlocks(extent, device);
}

/// Logs an error of the CUDA runtime (a cudaError_t) with its name and text; cudaSuccess says nothing.
void printError(int error);

namespace PrimaryContext {
/// Makes the primary context of the device current on this thread. Nothing on the CPU executor.
void retain(int device);
/// Retains that of device 0 if this thread has none: what every entry into device code calls first.
void ensureCurrent();
} // namespace PrimaryContext

} // namespace Kelvaris::CUDA::Utils
