#pragma once

#include "Lib/ImageDescriptor.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Kelvaris::ImageMath::internal {

/// Pixels that are worked on at once; their values stay in the nearest cache.
inline constexpr int kBlockSize = 512;

/// Consecutive pixels of one slice, row after row.
struct Block {
  int slice = -1;
  std::ptrdiff_t first = -1; ///< index of the first pixel within the slice
  int count = 0;             ///< at most kBlockSize
  int width = 0;             ///< of the image

  bool operator==(const Block&) const = default;

  /// Calls f(x, y, offset, count) for each piece of a row; `offset` is its place within the block.
  template <typename F> void forEachRow(F&& f) const {
    for (int offset = 0; offset < count;) {
      const std::ptrdiff_t pixel = first + offset;
      const int x = static_cast<int>(pixel % width), y = static_cast<int>(pixel / width);
      const int run = std::min(width - x, count - offset);
      f(x, y, offset, run);
      offset += run;
    }
  }
};

/// One value for each pixel of a block.
template <typename V> struct alignas(64) BlockValues : std::array<V, kBlockSize> {};

/// What evaluators need to know when they are made.
struct EvaluationContext {
  ImageDescriptor target;
  /// The StashSlot of the innermost stash around the node.
  void* stash = nullptr;
};

} // namespace Kelvaris::ImageMath::internal
