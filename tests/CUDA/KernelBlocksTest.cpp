#include "CUDA/Utils.h"

#include <gtest/gtest.h>

#include <array>

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
      {"just above a warp: the odd step rounds up and the grid covers more than the extent",
       {33, 1, 1},
       usual,
       {{2, 1, 1}, {32, 1, 1}}},
      {"ties go to the lower axis", {64, 64, 1}, usual, {{4, 4, 1}, {16, 16, 1}}},
      {"even before odd, even where the odd axis is longer", {251, 2, 2}, usual, {{16, 1, 1}, {16, 2, 2}}},
      {"prime sizes", {251, 251, 1}, usual, {{1, 63, 1}, {256, 4, 1}}},
      {"a limit of 768 threads counts as 256", {65536, 1, 1}, Device::cpu(32, 768), {{256, 1, 1}, {256, 1, 1}}},
      {"z is closed at its own limit, and full blocks are made by growing x beyond its extent",
       {1, 1, 4096},
       Device::cpu(32, 1024, {1024, 1024, 64}),
       {{1, 1, 64}, {16, 1, 64}}},
      {"an axis that closes leaves the growth to the others, beyond their extent if a warp asks for it",
       {1, 1, 40},
       Device::cpu(32, 1024, {1024, 1024, 4}),
       {{1, 1, 10}, {8, 1, 4}}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Utils::kernelBlocks(c.extent, c.device), c.expected) << c.what;
  EXPECT_THROW(Utils::kernelBlocks(Dim3{0, 4, 1}, usual), std::invalid_argument);
}

TEST(KernelBlocks, CoversEveryExtentWithinTheLimits) {
  for (const int x : {1, 31, 97, 4099})
    for (const int y : {1, 3, 251, 2048})
      for (const int z : {1, 5, 127}) {
        const auto [grid, block] = Utils::blockSizeForImage(Eigen::Vector3i(x, y, z), Device::cpu());
        EXPECT_LE(block.x * block.y * block.z, 1024);
        EXPECT_LE(block.z, 64);
        for (const auto& [blocks, threads, extent] :
             {std::array{grid.x, block.x, x}, std::array{grid.y, block.y, y}, std::array{grid.z, block.z, z}}) {
          EXPECT_GE(blocks * threads, extent);
          EXPECT_LT((blocks - 1) * threads, extent);
        }
      }
}

} // namespace
} // namespace Kelvaris::CUDA
