#include "CUDA/Utils.h"

#include <gtest/gtest.h>

#include <ostream>

namespace Kelvaris::CUDA {

void PrintTo(const LaunchShape& s, std::ostream* out) {
  *out << "grid (" << s.grid.x << ", " << s.grid.y << ", " << s.grid.z << ") block (" << s.block.x << ", " << s.block.y
       << ", " << s.block.z << ")";
}

namespace {

struct Case {
  const char* what;
  Dim3 extent;
  Device device;
  LaunchShape expected;
};

TEST(KernelBlocks, SearchFollowsItsRules) {
  const Device usual = Device::cpu();
  const Case cases[] = {
      {"up to a warp: one block of the extent", {4, 4, 1}, usual, {{1, 1, 1}, {4, 4, 1}}},
      {"exactly a warp", {4, 4, 2}, usual, {{1, 1, 1}, {4, 4, 2}}},
      {"one axis: only x grows, until no more blocks remain than a multiprocessor holds",
       {1024, 1, 1},
       usual,
       {{16, 1, 1}, {64, 1, 1}}},
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
  for (const Case& c : cases)
    EXPECT_EQ(Utils::kernelBlocks(c.extent, c.device), c.expected) << c.what;
}

TEST(KernelBlocks, CoversEveryExtentWithinTheLimits) {
  const Device device = Device::cpu();
  for (const int x : {1, 2, 31, 97, 640, 4099})
    for (const int y : {1, 3, 32, 251, 2048})
      for (const int z : {1, 5, 16, 127}) {
        const LaunchShape s = Utils::blockSizeForImage(Eigen::Vector3i(x, y, z), device);
        EXPECT_LE(s.block.x * s.block.y * s.block.z, 1024);
        EXPECT_LE(s.block.z, 64);
        EXPECT_GE(s.grid.x * s.block.x, x);
        EXPECT_GE(s.grid.y * s.block.y, y);
        EXPECT_GE(s.grid.z * s.block.z, z);
        EXPECT_LT((s.grid.x - 1) * s.block.x, x);
        EXPECT_LT((s.grid.y - 1) * s.block.y, y);
        EXPECT_LT((s.grid.z - 1) * s.block.z, z);
      }
}

TEST(KernelBlocks, RefusesEmptyExtents) {
  EXPECT_THROW(Utils::kernelBlocks(Dim3{0, 4, 1}, Device::cpu()), std::invalid_argument);
}

} // namespace
} // namespace Kelvaris::CUDA
