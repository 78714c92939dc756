#pragma once

#include "CUDA/KernelCode.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

#if defined(__CUDACC__)
#include <cuda_runtime.h>
#endif

namespace Kelvaris::CUDA {

/// By-value view of an image, as every kernel receives it: linear memory if `data` is not null, else a CUDA surface.
/// It owns nothing. Sizes are in pixels; all components of a pixel are one element.
struct KernelBuffer {
  int width = 0;
  int height = 0;
  int slices = 0;
  void* data = nullptr;      ///< element (0, 0, 0), or null for a surface
  std::int64_t rowPitch = 0; ///< bytes from a row to the next; a slice is height rows
  int elementStride = 0;     ///< bytes from an element to its right neighbour
  std::uint64_t surface = 0; ///< cudaSurfaceObject_t, used where data is null (CUDA executor only)
};
static_assert(std::is_trivially_copyable_v<KernelBuffer>);

inline namespace KELVARIS_ARCH {

/// Address of element (x, y, z) of linear memory: data + (z height + y) rowPitch + x elementStride.
KELVARIS_KERNEL char* elementAddress(const KernelBuffer& buffer, int x, int y, int z) {
  const std::int64_t row = static_cast<std::int64_t>(z) * buffer.height + y;
  return static_cast<char*>(buffer.data) + row * buffer.rowPitch + x * buffer.elementStride;
}

#if defined(__CUDACC__)
/// Surface reads and writes know integers of 1 to 16 bytes: the bits of an element travel in one of its size.
template <typename T>
using SurfaceBits = std::conditional_t<
    sizeof(T) == 1, unsigned char,
    std::conditional_t<sizeof(T) == 2, unsigned short, std::conditional_t<sizeof(T) == 4, unsigned int, uint2>>>;
#endif

/// Reads element (x, y, z). Linear memory is not checked; outside a surface the result is zero.
template <typename T> KELVARIS_KERNEL T readElement(const KernelBuffer& buffer, int x, int y, int z) {
#if defined(__CUDA_ARCH__)
  if (!buffer.data) {
    const auto surface = static_cast<cudaSurfaceObject_t>(buffer.surface);
    const int byte = x * static_cast<int>(sizeof(T));
    SurfaceBits<T> bits;
    if (buffer.slices > 1)
      surf3Dread(&bits, surface, byte, y, z, cudaBoundaryModeZero);
    else if (buffer.height > 1)
      surf2Dread(&bits, surface, byte, y, cudaBoundaryModeZero);
    else
      surf1Dread(&bits, surface, byte, cudaBoundaryModeZero);
    return reinterpret_cast<const T&>(bits);
  }
#endif
  return *reinterpret_cast<const T*>(elementAddress(buffer, x, y, z));
}

/// Writes element (x, y, z). Linear memory is not checked; a write outside a surface does nothing.
template <typename T> KELVARIS_KERNEL void writeElement(const KernelBuffer& buffer, int x, int y, int z, T value) {
#if defined(__CUDA_ARCH__)
  if (!buffer.data) {
    const auto surface = static_cast<cudaSurfaceObject_t>(buffer.surface);
    const int byte = x * static_cast<int>(sizeof(T));
    const auto bits = reinterpret_cast<const SurfaceBits<T>&>(value);
    if (buffer.slices > 1)
      surf3Dwrite(bits, surface, byte, y, z, cudaBoundaryModeZero);
    else if (buffer.height > 1)
      surf2Dwrite(bits, surface, byte, y, cudaBoundaryModeZero);
    else
      surf1Dwrite(bits, surface, byte, cudaBoundaryModeZero);
    return;
  }
#endif
  *reinterpret_cast<T*>(elementAddress(buffer, x, y, z)) = value;
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::CUDA
