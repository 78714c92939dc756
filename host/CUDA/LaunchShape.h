#pragma once

namespace Kelvaris::CUDA {

struct Dim3 {
  int x = 1, y = 1, z = 1;
  friend bool operator==(const Dim3&, const Dim3&) = default;
};

/// Blocks of a launch and threads of a block, per axis.
struct LaunchShape {
  Dim3 grid;
  Dim3 block;
  friend bool operator==(const LaunchShape&, const LaunchShape&) = default;
};

} // namespace Kelvaris::CUDA
