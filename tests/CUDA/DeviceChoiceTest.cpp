#include "CUDA/Device.h"

#include "support/ErrorOf.h"

namespace Kelvaris::CUDA {
namespace {

// One test, as the choice is made once; a refused one is made again at the next call.
TEST(DeviceChoice, FollowsTheEnvironmentAndIsMadeOnce) {
  const auto refusal = [] { return Tests::errorOf<std::runtime_error>([] { Device::current(); }); };
  ASSERT_EQ(setenv("KELVARIS_DEVICE", "gpu", 1), 0);
  EXPECT_CONTAINS(refusal(), "\"gpu\"");
  if (!Device::cudaProblem().empty()) {
    setenv("KELVARIS_DEVICE", "cuda", 1);
    EXPECT_CONTAINS(refusal(), Device::cudaProblem());
  }
  setenv("KELVARIS_DEVICE", "cpu", 1);
  const Device& device = Device::current();
  EXPECT_EQ(device.executor(), Executor::Cpu);
  setenv("KELVARIS_DEVICE", "gpu", 1);
  EXPECT_EQ(&Device::current(), &device);
}

} // namespace
} // namespace Kelvaris::CUDA
