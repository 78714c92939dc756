#include "CUDA/Check.h"
#include "CUDA/DeviceBufferImage.h"
#include "CUDA/DeviceBufferPool.h"
#include "CUDA/Utils.h"
#include "Lib/SharedImage.h"
#include "support/DeviceTest.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"

namespace Kelvaris::CUDA {
namespace {

class DeviceBuffer : public Tests::DeviceTest<> {};

TEST_F(DeviceBuffer, EveryPixelTypeSurvivesTheWayThereAndBack) {
  for (const int type :
       {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelUInt32, PixelFloat, PixelDouble, PixelHalf}) {
    const auto image = Tests::randomBytes(ImageDescriptor(type, 7, 5, 3, 2));
    const auto device = SharedImage(image).sharedCustom<DeviceBufferImage>();
    EXPECT_TRUE(device->descriptor().isApprox(image->descriptor()));
    EXPECT_TRUE(Tests::sameBytes(*device->download(), *image)) << ImageDescriptor::pixelTypeName(type);
  }
}

TEST_F(DeviceBuffer, RefusesWhatHasNoPixels) {
  EXPECT_THROW(DeviceBufferImage(ImageDescriptor(PixelFloat, 0, 4)), std::invalid_argument);
  EXPECT_THROW(DeviceBufferImage(ImageDescriptor(17, 4, 4)), std::invalid_argument);
  DeviceMemory memory(8);
  std::vector<char> large(9);
  EXPECT_THROW(memory.upload(large.data(), large.size()), std::out_of_range);
  EXPECT_THROW(memory.download(large.data(), large.size()), std::out_of_range);
}

TEST_F(DeviceBuffer, PoolReusesBlocksWhileAGuardLives) {
  { DeviceMemory memory(1000); }
  EXPECT_EQ(DeviceBufferPool::keptBlocks(), 0u);
  {
    const DeviceBufferPool::ActivationGuard outer;
    const void* first;
    {
      const DeviceBufferPool::ActivationGuard inner;
      DeviceMemory memory(1000);
      first = memory.data();
    }
    EXPECT_EQ(DeviceBufferPool::keptBlocks(), 1u);
    const DeviceMemory other(2000), same(1000);
    EXPECT_EQ(same.data(), first);
    EXPECT_EQ(DeviceBufferPool::keptBlocks(), 0u);
    for (std::size_t i = 0; i < 2 * DeviceBufferPool::maxKeptBlocks; ++i)
      DeviceMemory(1 + i);
    EXPECT_EQ(DeviceBufferPool::keptBlocks(), DeviceBufferPool::maxKeptBlocks);
  }
  EXPECT_EQ(DeviceBufferPool::keptBlocks(), 0u);
}

TEST_F(DeviceBuffer, BlocksOfTheCpuExecutorAreAlignedAndPadded) {
  if (Device::isCuda()) GTEST_SKIP() << "concerns the CPU executor";
  for (const std::size_t bytes : {1u, 63u, 64u, 1000u}) {
    const DeviceMemory memory(bytes);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.data()) % 64, 0u);
    for (std::size_t i = bytes; i < bytes + 64; ++i)
      EXPECT_EQ(static_cast<const char*>(memory.data())[i], 0);
  }
}

TEST_F(DeviceBuffer, ErrorsAreLoggedWithTheirNumber) {
  Utils::PrimaryContext::ensureCurrent();
  Utils::printError(0);
  const Tests::ExpectedLog log;
  Utils::printError(2);
  EXPECT_TRUE(log.contains("CUDA error 2"));
  EXPECT_CONTAINS(Tests::errorOf<Error>([] { KELVARIS_CUDA_CHECKED(2); }), "DeviceBufferTest.cpp");
}

} // namespace
} // namespace Kelvaris::CUDA
