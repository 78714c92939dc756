#include "CUDA/CpuLaunch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

namespace Kelvaris::CUDA {
namespace {

TEST(CpuLaunch, VisitsEveryThreadOnce) {
  for (const LaunchShape shape : {LaunchShape{{1, 1, 1}, {5, 1, 1}}, LaunchShape{{3, 2, 2}, {256, 7, 1}}}) {
    const int w = shape.grid.x * shape.block.x, h = shape.grid.y * shape.block.y, d = shape.grid.z * shape.block.z;
    std::vector<std::atomic<int>> visits(static_cast<std::size_t>(w * h * d));
    const auto visit = [&](int x, int y, int z) { ++visits[static_cast<std::size_t>((z * h + y) * w + x)]; };
    forEachThread(shape, visit);
    std::atomic<bool> aligned = true;
    forEachTile(shape, 4, [&](const Tile& tile) {
      if (tile.yBegin % 4 != 0 || tile.yEnd - tile.yBegin > 4) aligned = false;
      for (int y = tile.yBegin; y < tile.yEnd; ++y)
        for (int x = tile.xBegin; x < tile.xEnd; ++x)
          visit(x, y, tile.z);
    });
    EXPECT_TRUE(aligned);
    for (const auto& count : visits)
      ASSERT_EQ(count, 2);
  }
}

} // namespace
} // namespace Kelvaris::CUDA
