#pragma once

#include "CUDA/VectorTypes.h"
#include "gpu/IqDemodulationArguments.h"
#include "gpu/LineFilter.h"

// IQ demodulation, one thread per output sample: mixing, low-pass filter and decimation in one pass over the taps.
//
//   out(c) = sum_k s(i) v(i) h(k + half),   i = c D + k,   half = L / 2 truncated,   max(-half, -c) <= k < L - half
//
// v are the samples of the line that runs along axis `mode` through the thread's sample, n of them; the sum ends at the
// last one. s is the mixing signal, h the filter of L taps, D the decimation factor. The lower bound is that of the
// output's index c: with D above 1 the first outputs of a line have fewer terms than the samples would allow.
//
// Grid: at least the extent of `output`; threads outside leave. No shared memory, no barriers; a thread writes its own
// sample and nothing else, and its inputs are not written during the launch.
//
//   parameter         type                        shape
//   input             buffer of T                 any; read with one component
//   output            buffer of short2 or float2  input's, but ceil(n / D) on axis `mode`; (in-phase, quadrature)
//   signal            float2 buffer               n x 1 x 1
//   filter            float buffer                L x 1 x 1
//   decimationFactor  int                         D >= 1
//
// T is short or float. All arithmetic is in float: a term is the rounded product s v and a fused multiply-add with h.

namespace Kelvaris::US::GPU {

using CUDA::float2;
using CUDA::short2;

/// Element type of the output for an input of T.
template <typename T> struct IqPair;
template <> struct IqPair<short> { using Type = short2; };
template <> struct IqPair<float> { using Type = float2; };

inline namespace KELVARIS_ARCH {

/// A baseband value: the real part is in phase, the imaginary part in quadrature.
template <typename F> struct Baseband { F re, im; };

/// One term of the sum. F is float, for one thread, or lanes, for as many.
template <typename F> KELVARIS_KERNEL void addTerm(Baseband<F>& sum, F sample, Baseband<F> mixing, F tap) {
  sum.re = multiplyAdd(mixing.re * sample, tap, sum.re);
  sum.im = multiplyAdd(mixing.im * sample, tap, sum.im);
}

/// The sum over some taps. A `Line` gives sample, mixing signal and tap at k, for one thread or for several.
template <typename F, typename Line> KELVARIS_KERNEL void addTerms(Baseband<F>& sum, const Line& line, TapRange taps) {
  for (int k = taps.first; k < taps.end; ++k)
    addTerm(sum, line.sample(k), line.mixing(k), line.tap(k));
}

template <typename T>
KELVARIS_KERNEL void storePair(const KernelBuffer& output, int x, int y, int z, float inPhase, float quadrature) {
  using Pair = typename IqPair<T>::Type;
  CUDA::writeElement<Pair>(output, x, y, z, Pair{static_cast<T>(inPhase), static_cast<T>(quadrature)});
}

/// What thread (x, y, z) reads.
template <typename T, int mode> struct ThreadLine {
  const IqDemodulationArguments& a;
  int x, y, z;

  KELVARIS_KERNEL int coordinate() const { return mode == 0 ? x : mode == 1 ? y : z; }
  KELVARIS_KERNEL int index(int k) const { return coordinate() * a.decimationFactor + k; }
  KELVARIS_KERNEL float sample(int k) const {
    const int i = index(k);
    return static_cast<float>(CUDA::readElement<T>(a.input, mode == 0 ? i : x, mode == 1 ? i : y, mode == 2 ? i : z));
  }
  KELVARIS_KERNEL Baseband<float> mixing(int k) const {
    const float2 s = CUDA::readElement<float2>(a.signal, index(k), 0, 0);
    return {s.x, s.y};
  }
  KELVARIS_KERNEL float tap(int k) const { return CUDA::readElement<float>(a.filter, k + a.filter.width / 2, 0, 0); }
};

/// The work of thread (x, y, z).
template <typename T, int mode>
KELVARIS_KERNEL void demodulationThread(const IqDemodulationArguments& a, int x, int y, int z) {
  if (x >= a.output.width || y >= a.output.height || z >= a.output.slices) return;
  const ThreadLine<T, mode> line{a, x, y, z};
  Baseband<float> sum{0.0f, 0.0f};
  addTerms(sum, line, tapRange(line.coordinate(), a.decimationFactor, a.filter.width, extentAlong(mode, a.input)));
  storePair<T>(a.output, x, y, z, toStored<T>(sum.re), toStored<T>(sum.im));
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
