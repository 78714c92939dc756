#include "CUDA/Device.h"

#include "support/ErrorOf.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace Kelvaris::CUDA {
namespace {

std::string refusal() {
  return Tests::errorOf<std::runtime_error>([] { Device::current(); });
}

// One test, as the choice is made once; a refused one is made again at the next call.
TEST(DeviceChoice, FollowsTheEnvironmentAndIsMadeOnce) {
  ASSERT_EQ(setenv("KELVARIS_DEVICE", "gpu", 1), 0);
  EXPECT_CONTAINS(refusal(), "\"gpu\"");
  if (!Device::cudaProblem().empty()) {
    setenv("KELVARIS_DEVICE", "cuda", 1);
    EXPECT_CONTAINS(refusal(), Device::cudaProblem());
  }
  setenv("KELVARIS_DEVICE", "cpu", 1);
  const Device& device = Device::current();
  EXPECT_EQ(device.executor(), Executor::Cpu);
  EXPECT_EQ(device.warpSize(), 32);
  EXPECT_EQ(device.maxThreadsPerBlock(), 1024);
  EXPECT_EQ(device.maxThreadsDim(), (std::array<int, 3>{1024, 1024, 64}));
  EXPECT_EQ(device.maxBlocksPerMultiProcessor(), 16);
  setenv("KELVARIS_DEVICE", "gpu", 1);
  EXPECT_EQ(&Device::current(), &device);
}

} // namespace
} // namespace Kelvaris::CUDA
