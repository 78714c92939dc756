#pragma once

#include "CUDA/LaunchShape.h"

#include <cstdint>
#include <type_traits>

/// Running a kernel on the CPU executor.
///
/// A kernel's maths is a function of one thread, in a header that g++ and nvcc both compile (KELVARIS_KERNEL), with the
/// thread's global index as its first arguments. Both executors call it over the same launch shape:
///
///     // FooKernel.h
///     KELVARIS_KERNEL void fooThread(int x, int y, int z, const FooArguments& a);   // returns if outside the extent
///
///     // FooKernel.cu, built where there is nvcc
///     __global__ void fooKernel(FooArguments a) {
///       fooThread(blockIdx.x * blockDim.x + threadIdx.x, ..., a);
///     }
///     int launchFooOnCuda(const LaunchShape& s, const FooArguments& a) {
///       fooKernel<<<dim3(s.grid.x, s.grid.y, s.grid.z), dim3(s.block.x, s.block.y, s.block.z)>>>(a);
///       return cudaPeekAtLastError(); // here: each library has a CUDA runtime, and with it a last error, of its own
///     }
///
///     // Foo.cpp
///     const LaunchShape shape = Utils::kernelBlocks(extent);
///     #if KELVARIS_HAVE_CUDA
///     if (Device::isCuda()) return Utils::printError(launchFooOnCuda(shape, a));
///     #endif
///     forEachThread(shape, [&](int x, int y, int z) { fooThread(x, y, z, a); });
///
/// Where the vector units are worth it, fooThread is a template over the number type and the CPU executor runs it for
/// Lanes (Lanes.h), which stand for neighbouring rows, through forEachTile; see gpu/BeamformingKernelCpu.cpp.
///
/// Calls return when all threads are done. The body runs on several cores at once and must not throw.
namespace Kelvaris::CUDA {

/// Threads with xBegin <= x < xEnd, yBegin <= y < yEnd and the given z.
struct Tile {
  int xBegin, xEnd;
  int yBegin, yEnd;
  int z;
};

namespace Detail {
void runTiles(const LaunchShape& shape, int tileHeight, void (*body)(const void*, const Tile&), const void* context);
} // namespace Detail

/// Calls body(tile) for tiles that cover all threads of the launch, each once; a tile is `tileHeight` rows high (less
/// at the end of the grid), and starts at a multiple of it.
template <typename Body> void forEachTile(const LaunchShape& shape, int tileHeight, const Body& body) {
  Detail::runTiles(
      shape, tileHeight, [](const void* context, const Tile& tile) { (*static_cast<const Body*>(context))(tile); },
      &body);
}

/// Calls body(x, y, z) for each thread of the launch.
template <typename Body> void forEachThread(const LaunchShape& shape, const Body& body) {
  forEachTile(shape, 1, [&](const Tile& tile) {
    for (int y = tile.yBegin; y < tile.yEnd; ++y)
      for (int x = tile.xBegin; x < tile.xEnd; ++x)
        body(x, y, tile.z);
  });
}

} // namespace Kelvaris::CUDA
