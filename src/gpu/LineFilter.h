#pragma once

#include "CUDA/KernelBuffer.h"
#include "CUDA/Scalar.h"

#include <cstdint>
#include <type_traits>

namespace Kelvaris::US::GPU {

using CUDA::KernelBuffer;

inline namespace KELVARIS_ARCH {

// What the kernels share that filter along the lines of an image.

// The operations on one thread's float; those on lanes are found through their argument types.
using CUDA::isNan;
using CUDA::multiplyAdd;
using CUDA::roundHalfAway;
using CUDA::select;

KELVARIS_KERNEL int extentAlong(int axis, const KernelBuffer& buffer) {
  return axis == 0 ? buffer.width : axis == 1 ? buffer.height : buffer.slices;
}

/// Bytes from an element to the next one on the axis.
KELVARIS_KERNEL std::int64_t strideAlong(int axis, const KernelBuffer& buffer) {
  return axis == 0 ? buffer.elementStride : axis == 1 ? buffer.rowPitch : buffer.height * buffer.rowPitch;
}

/// The k from first to end - 1: offsets of an output's terms from its own sample.
struct TapRange {
  int first, end;
};
/// The offsets of output c, which lies at sample c D of a line of `samples`, D being the decimation factor: those of a
/// filter of L taps around L / 2 (truncated), but not more than c before the output's own sample, so that they never
/// leave the line at its start, and cut where they would at its end.
KELVARIS_KERNEL TapRange tapRange(int c, int decimationFactor, int filterLength, int samples) {
  const int half = filterLength / 2, left = samples - c * decimationFactor;
  return {-half > -c ? -half : -c, filterLength - half < left ? filterLength - half : left};
}

/// A result as a number that is stored in a T: floats as they are; for every integer type rounded with halves away from
/// zero and clamped to the range of short, -32768 ... 32767, and 0 for NaN.
template <typename T, typename F> KELVARIS_KERNEL F toStored(F v) {
  if constexpr (std::is_floating_point_v<T>) {
    return v;
  } else {
    const F rounded = roundHalfAway(select(isNan(v), F(0.0f), v));
    const F notAbove = select(rounded > F(32767.0f), F(32767.0f), rounded);
    return select(notAbove < F(-32768.0f), F(-32768.0f), notAbove);
  }
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
