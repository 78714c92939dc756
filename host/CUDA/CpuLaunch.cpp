#include "CUDA/CpuLaunch.h"

#include <algorithm>

namespace Kelvaris::CUDA::Detail {

void runTiles(const LaunchShape& shape, int tileHeight, void (*body)(const void*, const Tile&), const void* context) {
  const std::int64_t width = static_cast<std::int64_t>(shape.grid.x) * shape.block.x;
  const std::int64_t height = static_cast<std::int64_t>(shape.grid.y) * shape.block.y;
  const std::int64_t depth = static_cast<std::int64_t>(shape.grid.z) * shape.block.z;
  // Tiles wide enough to share what neighbouring columns read, and enough of them for all cores.
  constexpr std::int64_t tileWidth = 256;
  const std::int64_t columns = (width + tileWidth - 1) / tileWidth, rows = (height + tileHeight - 1) / tileHeight;
  const std::int64_t count = columns * rows * depth;
#pragma omp parallel for schedule(dynamic)
  for (std::int64_t i = 0; i < count; ++i) {
    const std::int64_t column = i % columns, row = i / columns % rows, z = i / (columns * rows);
    const Tile tile{static_cast<int>(column * tileWidth), static_cast<int>(std::min(width, (column + 1) * tileWidth)),
                    static_cast<int>(row * tileHeight), static_cast<int>(std::min(height, (row + 1) * tileHeight)),
                    static_cast<int>(z)};
    body(context, tile);
  }
}

} // namespace Kelvaris::CUDA::Detail
