#pragma once

#include "CUDA/CpuVariant.h"
#include "CUDA/KernelBuffer.h"
#include "support/Images.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

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

/// Holds what `onCpu(arguments, variant)` writes on every instruction set of this processor against the bits of single
/// threads, each run by `thread(arguments, x, y, z)`.
template <typename Arguments, typename Thread, typename OnCpu>
void expectBitsOfThreads(const ImageDescriptor& output, Arguments arguments, Thread thread, OnCpu onCpu) {
  const auto untouched = [&] { return imageOf(output, [](int, int, int, int) { return 77; }); };
  const auto expected = untouched();
  arguments.output = bufferOf(*expected);
  for (int z = 0; z < output.slices(); ++z)
    for (int y = 0; y < output.height(); ++y)
      for (int x = 0; x < output.width(); ++x)
        thread(arguments, x, y, z);
  for (const auto variant : {CUDA::CpuVariant::V2, CUDA::CpuVariant::V3, CUDA::CpuVariant::V4}) {
    if (!CUDA::isSupported(variant)) continue;
    const auto result = untouched();
    arguments.output = bufferOf(*result);
    onCpu(arguments, variant);
    EXPECT_TRUE(sameBytes(*result, *expected)) << "x86-64-v" << static_cast<int>(variant);
  }
}

} // namespace Kelvaris::Tests
