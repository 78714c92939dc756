#include "CUDA/Utils.h"

#include <gtest/gtest.h>

namespace Kelvaris::CUDA {
namespace {

TEST(KernelBlocks, SearchFollowsItsRules) {
  const Device usual = Device::cpu();
  const struct {
    const char* what;
    Dim3 extent;
    Device device;
    LaunchShape expected;
  } cases[] = {
      {"up to a warp: one block of the extent", {4, 4, 2}, usual, {{1, 1, 1}, {4, 4, 2}}},
      {"an odd step rounds up, and the grid covers more", {33, 1, 1}, usual, {{2, 1, 1}, {32, 1, 1}}},
      {"ties go to the lower axis", {64, 64, 1}, usual, {{4, 4, 1}, {16, 16, 1}}},
      {"even before odd, even where the odd axis is longer", {251, 2, 2}, usual, {{16, 1, 1}, {16, 2, 2}}},
      {"prime sizes", {251, 251, 1}, usual, {{1, 63, 1}, {256, 4, 1}}},
      {"a limit of 768 threads counts as 256", {65536, 1, 1}, Device::cpu(32, 768), {{256, 1, 1}, {256, 1, 1}}},
      {"z is closed at its limit, and x grows beyond its extent", {1, 1, 4096}, usual, {{1, 1, 64}, {16, 1, 64}}},
      {"the same for a whole warp", {1, 1, 40}, Device::cpu(32, 1024, {1024, 1024, 4}), {{1, 1, 10}, {8, 1, 4}}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Utils::kernelBlocks(c.extent, c.device), c.expected) << c.what;
  EXPECT_EQ(Utils::blockSizeForImage(Eigen::Vector3i(64, 64, 1), usual), (LaunchShape{{4, 4, 1}, {16, 16, 1}}));
  EXPECT_THROW(Utils::kernelBlocks(Dim3{0, 4, 1}, usual), std::invalid_argument);
}

} // namespace
} // namespace Kelvaris::CUDA
