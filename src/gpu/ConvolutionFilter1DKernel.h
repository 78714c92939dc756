#pragma once

#include "gpu/ConvolutionFilter1DArguments.h"
#include "gpu/LineFilter.h"

// Convolution along one axis, one thread per sample:
//
//   out(c) = sum_k v(c + k) h(k + half),   half = L / 2 truncated,   max(-half, -c) <= k < min(L - half, n - c)
//
// v are the samples of the line that runs along axis `mode` through the thread's sample, n of them, and h the filter of
// L taps. The filter is not turned round: for an unsymmetric one this is a correlation. At both ends of a line the
// terms outside are left out, and the rest is not scaled up for them.
//
// Grid: at least the extent of `output`; threads outside leave. No shared memory, no barriers; a thread reads up to L
// samples and taps, writes its own sample and nothing else, and its inputs are not written during the launch.
//
//   parameter  type          shape
//   input      buffer of T   n on axis `mode`; read with one component
//   output     buffer of T   input's
//   filter     float buffer  L x 1 x 1
//
// T is char, unsigned char, short, unsigned short, int, unsigned int or float. All arithmetic is in float: samples are
// rounded to it, a term is a fused multiply-add, in ascending k. Floats are stored as they are. All integer types are
// stored by the rule of 16-bit ones: rounded with halves away from zero, clamped to -32768 ... 32767, and of that the
// low bits that the type has room for. So 300 is 44 in an unsigned char, -1 is 65535 in an unsigned short, and an
// unsigned int never exceeds 32767 but for negative results, which wrap. NaN is 0.

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

/// The sum over some taps. A `Line` gives sample and tap at k. F is float, for one thread, or lanes, for as many.
template <typename F, typename Line> KELVARIS_KERNEL void addTerms(F& sum, const Line& line, TapRange taps) {
  for (int k = taps.first; k < taps.end; ++k)
    sum = multiplyAdd(line.sample(k), line.tap(k), sum);
}

/// A result that toStored() prepared, as a T.
template <typename T> KELVARIS_KERNEL T lowBits(float stored) {
  if constexpr (std::is_floating_point_v<T>)
    return stored;
  else
    return static_cast<T>(static_cast<int>(stored));
}

/// What thread (x, y, z) reads.
template <typename T, int mode> struct ConvolutionLine {
  const ConvolutionFilter1DArguments& a;
  int x, y, z;

  KELVARIS_KERNEL int coordinate() const { return mode == 0 ? x : mode == 1 ? y : z; }
  KELVARIS_KERNEL float sample(int k) const {
    return static_cast<float>(
        CUDA::readElement<T>(a.input, mode == 0 ? x + k : x, mode == 1 ? y + k : y, mode == 2 ? z + k : z));
  }
  KELVARIS_KERNEL float tap(int k) const { return CUDA::readElement<float>(a.filter, k + a.filter.width / 2, 0, 0); }
};

/// The work of thread (x, y, z).
template <typename T, int mode>
KELVARIS_KERNEL void convolutionThread(const ConvolutionFilter1DArguments& a, int x, int y, int z) {
  static_assert(std::is_signed_v<char>);
  if (x >= a.output.width || y >= a.output.height || z >= a.output.slices) return;
  const ConvolutionLine<T, mode> line{a, x, y, z};
  float sum = 0.0f;
  addTerms(sum, line, tapRange(line.coordinate(), 1, a.filter.width, extentAlong(mode, a.input)));
  CUDA::writeElement<T>(a.output, x, y, z, lowBits<T>(toStored<T>(sum)));
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
