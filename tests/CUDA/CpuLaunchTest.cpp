#include "CUDA/CpuLaunch.h"

#include <gtest/gtest.h>

#include <atomic>

namespace Kelvaris::CUDA {
namespace {

TEST(CpuLaunch, VisitsEveryThreadOnce) {
  const int w = 400, h = 14, d = 2; // several tiles along x and y, the last ones smaller
  std::vector<std::atomic<int>> visits(w * h * d);
  forEachTile({{2, 2, d}, {w / 2, h / 2, 1}}, 4, [&](const Tile& tile) {
    for (int y = tile.yBegin; y < tile.yEnd; ++y)
      for (int x = tile.xBegin; x < tile.xEnd; ++x)
        visits[static_cast<std::size_t>((tile.z * h + y) * w + x)] +=
            tile.yBegin % 4 == 0 && tile.yEnd <= tile.yBegin + 4;
  });
  for (const auto& count : visits)
    ASSERT_EQ(count, 1);
}

} // namespace
} // namespace Kelvaris::CUDA
