#pragma once

#include "CUDA/KernelCode.h"

#include <cmath>

namespace Kelvaris::CUDA {
inline namespace KELVARIS_ARCH {

/// The operations that per-thread code applies to one number or to a bundle of lanes. Here for one thread a number
/// (device and plain host code); Lanes.h has the same names for the CPU executor's vector units. `bool` is the mask of
/// a single thread, and reductions over it are the value itself.
template <typename F> struct LaneTraits;

template <> struct LaneTraits<float> {
  using Mask = bool;
  static constexpr int count = 1;
  /// Steps of a loop that are worth preparing together.
  static constexpr int batch = 1;
  /// The first n threads.
  KELVARIS_KERNEL static bool firstThreads(int n) { return n > 0; }
};

template <typename F> using MaskOf = typename LaneTraits<F>::Mask;

KELVARIS_KERNEL float select(bool condition, float yes, float no) {
  return condition ? yes : no;
}
KELVARIS_KERNEL bool any(bool mask) {
  return mask;
}
KELVARIS_KERNEL float lowest(float v) {
  return v;
}
KELVARIS_KERNEL float highest(float v) {
  return v;
}
KELVARIS_KERNEL bool isNan(float v) {
  return v != v;
}
KELVARIS_KERNEL float notANumber() {
  return NAN;
}
KELVARIS_KERNEL float infinity() {
  return INFINITY;
}
KELVARIS_KERNEL float absolute(float v) {
  return fabsf(v);
}
KELVARIS_KERNEL float copySign(float magnitude, float sign) {
  return copysignf(magnitude, sign);
}

#if defined(__CUDA_ARCH__)
KELVARIS_KERNEL float squareRoot(float v) {
  return __fsqrt_rn(v);
}
KELVARIS_KERNEL float multiplyAdd(float a, float b, float c) {
  return __fmaf_rn(a, b, c);
}
KELVARIS_KERNEL float truncate(float v) {
  return truncf(v);
}
KELVARIS_KERNEL float roundHalfAway(float v) {
  return roundf(v);
}
KELVARIS_KERNEL void sineCosine(float v, float& sine, float& cosine) {
  sincosf(v, &sine, &cosine);
}
KELVARIS_KERNEL float cosine(float v) {
  return cosf(v);
}
#else
KELVARIS_KERNEL float squareRoot(float v) {
  return __builtin_sqrtf(v);
}
KELVARIS_KERNEL float multiplyAdd(float a, float b, float c) {
  return __builtin_fmaf(a, b, c);
}
KELVARIS_KERNEL float truncate(float v) {
  return __builtin_truncf(v);
}
KELVARIS_KERNEL float roundHalfAway(float v) {
  return __builtin_roundf(v);
}
KELVARIS_KERNEL void sineCosine(float v, float& sine, float& cosine) {
  sine = __builtin_sinf(v);
  cosine = __builtin_cosf(v);
}
KELVARIS_KERNEL float cosine(float v) {
  return __builtin_cosf(v);
}
#endif

/// A float as an integer: truncated, saturated at the ends of int, 0 for NaN.
KELVARIS_KERNEL int toInteger(float v) {
  if (isNan(v)) return 0;
  if (v >= 0x1p31f) return 2147483647;
  if (v < -0x1p31f) return -2147483647 - 1;
  return static_cast<int>(v);
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::CUDA
