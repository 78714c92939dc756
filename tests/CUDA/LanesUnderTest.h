#pragma once

#include "CUDA/KernelCode.h"

#include <cstddef>

namespace Kelvaris::CUDA {

/// One lane operation applied to arrays; n is a multiple of 16.
using LaneFunction = void(const float* in, float* out, std::size_t n);

struct LanesUnderTest {
  LaneFunction* sine;
  LaneFunction* cosine;
  LaneFunction* roundHalfAway;
  LaneFunction* truncate;
  /// a b + c with (a, b, c) in thirds of `in`.
  LaneFunction* multiplyAdd;
};

} // namespace Kelvaris::CUDA
