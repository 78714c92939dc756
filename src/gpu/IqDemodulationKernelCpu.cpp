// Built once per instruction set: see kelvaris_cpu_variants in cmake. No templates of the standard library here: the
// linker would merge their functions with those of other files.
//
// Bundles of neighbouring threads share their taps or sit side by side on a line. The terms and their order are those
// of the kernel, so every thread gets the bits that it would alone.
#include "gpu/IqDemodulationKernel.h"

#include "gpu/IqDemodulationRuns.h"
#include "gpu/LineFilterLanes.h"
#include "gpu/LineRuns.h"

#include <cstdint>
#include <cstring>

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

template <int n>
KELVARIS_KERNEL Baseband<Bundle<n>> selectLanes(int first, int last, const Baseband<Bundle<n>>& yes,
                                                const Baseband<Bundle<n>>& no) {
  return {selectLanes(first, last, yes.re, no.re), selectLanes(first, last, yes.im, no.im)};
}

/// Stores the first `count` lanes, side by side on `axis` from (x, y, z) on.
template <typename T, int n>
KELVARIS_KERNEL void storePairs(const KernelBuffer& output, int axis, int x, int y, int z, Baseband<Bundle<n>> sum,
                                int count) {
  float re[Bundle<n>::count], im[Bundle<n>::count];
  toStored<T>(sum.re).store(re);
  toStored<T>(sum.im).store(im);
  const std::int64_t stride = strideAlong(axis, output);
  char* address = CUDA::elementAddress(output, x, y, z);
  for (int i = 0; i < count; ++i) {
    const typename IqPair<T>::Type pair{static_cast<T>(re[i]), static_cast<T>(im[i])};
    std::memcpy(address + i * stride, &pair, sizeof pair);
  }
}

/// What the threads (x, y, z), (x + 1, y, z), ... read for axis 1 or 2: every lane has a line of its own, and the same
/// mixing signal and taps.
template <typename T, int axis, int n> struct LinesSideBySide {
  const char* input; // at the centre
  std::int64_t step;
  const char* signal; // at the centre
  int signalStride;
  const char* filter; // at tap 0
  int filterStride;

  KELVARIS_KERNEL LinesSideBySide(const IqDemodulationArguments& a, int x, int y, int z, int centre)
      : input(CUDA::elementAddress(a.input, x, axis == 1 ? centre : y, axis == 2 ? centre : z)),
        step(strideAlong(axis, a.input)),
        signal(CUDA::elementAddress(a.signal, centre, 0, 0)),
        signalStride(a.signal.elementStride),
        filter(CUDA::elementAddress(a.filter, a.filter.width / 2, 0, 0)),
        filterStride(a.filter.elementStride) {}

  KELVARIS_KERNEL Bundle<n> sample(int k) const {
    return Bundle<n>::load(reinterpret_cast<const T*>(input + k * step));
  }
  KELVARIS_KERNEL Baseband<Bundle<n>> mixing(int k) const {
    const auto* s = reinterpret_cast<const float2*>(signal + k * signalStride);
    return {Bundle<n>(s->x), Bundle<n>(s->y)};
  }
  KELVARIS_KERNEL Bundle<n> tap(int k) const {
    return Bundle<n>(*reinterpret_cast<const float*>(filter + k * filterStride));
  }
};

/// As many threads as the bundle has lanes, from x on, in rows `begin` to end - 1 of the axis.
template <typename T, int axis, int n>
KELVARIS_KERNEL void demodulateColumn(const IqDemodulationArguments& a, int x, int other, int begin, int end) {
  for (int c = begin; c < end; ++c) {
    const int y = axis == 1 ? c : other, z = axis == 1 ? other : c;
    Baseband<Bundle<n>> sum{Bundle<n>(0.0f), Bundle<n>(0.0f)};
    addTerms(sum, LinesSideBySide<T, axis, n>(a, x, y, z, c * a.decimationFactor),
             tapRange(c, a.decimationFactor, a.filter.width, extentAlong(axis, a.input)));
    storePairs<T, n>(a.output, 0, x, y, z, sum, Bundle<n>::count);
  }
}

/// For axis 1 (2): the threads with z (y) `other`, and with y (z) from `begin` to end - 1. The elements of the input
/// lie side by side along x, at least a register of them.
template <typename T> void demodulateRows(const IqDemodulationArguments& a, int axis, int other, int begin, int end) {
  if (axis == 1)
    forEachBundle<4>(0, a.output.width, [&]<int n>(int x) { demodulateColumn<T, 1, n>(a, x, other, begin, end); });
  else
    forEachBundle<4>(0, a.output.width, [&]<int n>(int x) { demodulateColumn<T, 2, n>(a, x, other, begin, end); });
}

/// What the threads c, c + 1, ... of one line read.
template <int n> struct LineInRuns {
  const float *samples, *inPhase, *quadrature; // at the centre of thread c
  const std::ptrdiff_t* offsets;
  const char* filter; // at tap 0
  int filterStride;

  KELVARIS_KERNEL Bundle<n> sample(int k) const { return Bundle<n>::load(samples + offsets[k]); }
  KELVARIS_KERNEL Baseband<Bundle<n>> mixing(int k) const {
    return {Bundle<n>::load(inPhase + offsets[k]), Bundle<n>::load(quadrature + offsets[k])};
  }
  KELVARIS_KERNEL Bundle<n> tap(int k) const {
    return Bundle<n>(*reinterpret_cast<const float*>(filter + k * filterStride));
  }
};

/// Threads c ... c + count - 1 of the line through (x, y, z); the bundle's other lanes are idle.
template <typename T, int n>
void demodulateStretch(const IqDemodulationArguments& a, const IqDemodulationRuns& runs, int axis, int x, int y, int z,
                       int c, int count) {
  const LineInRuns<n> line{runs.samples + c,
                           runs.inPhase + c,
                           runs.quadrature + c,
                           runs.offsets,
                           CUDA::elementAddress(a.filter, a.filter.width / 2, 0, 0),
                           a.filter.elementStride};
  Baseband<Bundle<n>> sum{Bundle<n>(0.0f), Bundle<n>(0.0f)};
  addStretch(sum, line, c, count, a.decimationFactor, a.filter.width, extentAlong(axis, a.input));
  (axis == 0 ? x : axis == 1 ? y : z) = c;
  storePairs<T, n>(a.output, axis, x, y, z, sum, count);
}

/// The threads of the line along `axis` through (x, y, z), where that coordinate is 0.
template <typename T>
void demodulateLine(const IqDemodulationArguments& a, const IqDemodulationRuns& runs, int axis, int x, int y, int z) {
  static_assert(Bundle<4>::count <= RunLayout::margin);
  forEachStretch<4>(extentAlong(axis, a.output),
                    [&]<int n>(int c, int count) { demodulateStretch<T, n>(a, runs, axis, x, y, z, c, count); });
}

template void demodulateRows<short>(const IqDemodulationArguments&, int, int, int, int);
template void demodulateRows<float>(const IqDemodulationArguments&, int, int, int, int);
template void demodulateLine<short>(const IqDemodulationArguments&, const IqDemodulationRuns&, int, int, int, int);
template void demodulateLine<float>(const IqDemodulationArguments&, const IqDemodulationRuns&, int, int, int, int);

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
