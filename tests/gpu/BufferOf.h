#pragma once

#include "CUDA/KernelBuffer.h"
#include "Lib/MemImage.h"

namespace Kelvaris::Tests {

/// The image in main memory as a kernel on the CPU executor sees it.
inline CUDA::KernelBuffer bufferOf(MemImage& image) {
  CUDA::KernelBuffer buffer;
  buffer.width = image.width();
  buffer.height = image.height();
  buffer.slices = image.slices();
  buffer.data = image.data();
  buffer.elementStride = image.descriptor().bytesPerComponent() * image.channels();
  buffer.rowPitch = static_cast<std::int64_t>(buffer.elementStride) * buffer.width;
  return buffer;
}

} // namespace Kelvaris::Tests
