// Built once per instruction set: see kelvaris_cpu_variants in cmake. No templates of the standard library here: the
// linker would merge their functions with those of other files.
//
// Bundles of neighbouring threads share their taps or sit side by side on a line. The terms and their order are those
// of the kernel, so every thread gets the bits that it would alone.
#include "gpu/IqDemodulationKernel.h"

#include "CUDA/Lanes.h"
#include "gpu/IqDemodulationRuns.h"

#include <cstdint>
#include <cstring>

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

using CUDA::LaneMask;
using CUDA::Lanes;
namespace native = CUDA::native;

/// n registers of lanes, so that 2 n chains of multiply-adds run side by side.
template <int n> struct Bundle {
  static constexpr int count = n * Lanes::count;
  Lanes part[n];

  Bundle() = default;
  KELVARIS_KERNEL explicit Bundle(float v) {
    for (Lanes& p : part)
      p = v;
  }
  KELVARIS_KERNEL static Bundle load(const float* values) {
    Bundle result;
    for (int i = 0; i < n; ++i)
      result.part[i] = Lanes::load(values + i * Lanes::count);
    return result;
  }
  KELVARIS_KERNEL static Bundle load(const short* values) {
    using Shorts [[gnu::vector_size(2 * Lanes::count)]] = short;
    using Ints [[gnu::vector_size(4 * Lanes::count)]] = int;
    Bundle result;
    for (int i = 0; i < n; ++i) {
      Shorts shorts;
      std::memcpy(&shorts, values + i * Lanes::count, sizeof shorts);
      result.part[i] = native::toFloats(reinterpret_cast<native::Ints>(__builtin_convertvector(shorts, Ints)));
    }
    return result;
  }
  KELVARIS_KERNEL void store(float* values) const {
    for (int i = 0; i < n; ++i)
      part[i].store(values + i * Lanes::count);
  }

  friend KELVARIS_KERNEL Bundle operator*(const Bundle& a, const Bundle& b) {
    Bundle result;
    for (int i = 0; i < n; ++i)
      result.part[i] = a.part[i] * b.part[i];
    return result;
  }
  friend KELVARIS_KERNEL Bundle multiplyAdd(const Bundle& a, const Bundle& b, const Bundle& c) {
    Bundle result;
    for (int i = 0; i < n; ++i)
      result.part[i] = multiplyAdd(a.part[i], b.part[i], c.part[i]);
    return result;
  }
};

/// Lane numbers from `first` to `last` of a bundle take the values of `yes`.
template <int n> KELVARIS_KERNEL Bundle<n> selectLanes(int first, int last, const Bundle<n>& yes, const Bundle<n>& no) {
  Bundle<n> result;
  for (int i = 0; i < n; ++i) {
    float numbers[Lanes::count];
    for (int lane = 0; lane < Lanes::count; ++lane)
      numbers[lane] = static_cast<float>(i * Lanes::count + lane);
    const Lanes number = Lanes::load(numbers);
    const LaneMask inside = number >= Lanes(static_cast<float>(first)) && number <= Lanes(static_cast<float>(last));
    result.part[i] = select(inside, yes.part[i], no.part[i]);
  }
  return result;
}

/// Stores the first `count` lanes, side by side on `axis` from (x, y, z) on.
template <typename T, int n>
KELVARIS_KERNEL void storePairs(const KernelBuffer& output, int axis, int x, int y, int z, Baseband<Bundle<n>> sum,
                                int count) {
  float re[Bundle<n>::count], im[Bundle<n>::count];
  for (int i = 0; i < n; ++i) {
    sum.re.part[i] = toStored<T>(sum.re.part[i]);
    sum.im.part[i] = toStored<T>(sum.im.part[i]);
  }
  sum.re.store(re);
  sum.im.store(im);
  const std::int64_t stride = axis == 0   ? output.elementStride
                              : axis == 1 ? output.rowPitch
                                          : output.height * output.rowPitch;
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
        step(axis == 1 ? a.input.rowPitch : a.input.height * a.input.rowPitch),
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

/// `count` threads from x on, by ever smaller bundles. The last one starts early enough to end with the row.
template <typename T, int axis, int n>
KELVARIS_KERNEL void demodulateColumns(const IqDemodulationArguments& a, int x, int count, int other, int begin,
                                       int end) {
  for (; count >= Bundle<n>::count; x += Bundle<n>::count, count -= Bundle<n>::count)
    demodulateColumn<T, axis, n>(a, x, other, begin, end);
  if constexpr (n > 1)
    demodulateColumns<T, axis, n / 2>(a, x, count, other, begin, end);
  else if (count > 0)
    demodulateColumn<T, axis, 1>(a, x + count - Lanes::count, other, begin, end);
}

/// For axis 1 (2): the threads with z (y) `other`, and with y (z) from `begin` to end - 1. The elements of the input
/// lie side by side along x, at least a register of them.
template <typename T> void demodulateRows(const IqDemodulationArguments& a, int axis, int other, int begin, int end) {
  if (axis == 1)
    demodulateColumns<T, 1, 4>(a, 0, a.output.width, other, begin, end);
  else
    demodulateColumns<T, 2, 4>(a, 0, a.output.width, other, begin, end);
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
  const int factor = a.decimationFactor, samples = extentAlong(axis, a.input);
  const LineInRuns<n> line{runs.samples + c,
                           runs.inPhase + c,
                           runs.quadrature + c,
                           runs.offsets,
                           CUDA::elementAddress(a.filter, a.filter.width / 2, 0, 0),
                           a.filter.elementStride};
  const TapRange ofFirst = tapRange(c, factor, a.filter.width, samples);
  const TapRange ofLast = tapRange(c + count - 1, factor, a.filter.width, samples);
  const int commonEnd = ofLast.end > ofFirst.first ? ofLast.end : ofFirst.first;

  Baseband<Bundle<n>> sum{Bundle<n>(0.0f), Bundle<n>(0.0f)};
  const auto addWhereInside = [&](TapRange taps) {
    for (int k = taps.first; k < taps.end; ++k) {
      Baseband<Bundle<n>> next = sum;
      addTerm(next, line.sample(k), line.mixing(k), line.tap(k));
      const int firstLane = -k - c, lastLane = (samples - 1 - k) / factor - c;
      sum.re = selectLanes(firstLane, lastLane, next.re, sum.re);
      sum.im = selectLanes(firstLane, lastLane, next.im, sum.im);
    }
  };
  addWhereInside({ofLast.first, ofFirst.first});
  addTerms(sum, line, {ofFirst.first, commonEnd});
  addWhereInside({commonEnd, ofFirst.end});
  (axis == 0 ? x : axis == 1 ? y : z) = c;
  storePairs<T, n>(a.output, axis, x, y, z, sum, count);
}

/// The threads of the line along `axis` through (x, y, z), where that coordinate is 0.
template <typename T>
void demodulateLine(const IqDemodulationArguments& a, const IqDemodulationRuns& runs, int axis, int x, int y, int z) {
  static_assert(Bundle<4>::count <= IqDemodulationRuns::margin);
  const int outputs = extentAlong(axis, a.output);
  const auto upTo = [](int count, int most) { return count < most ? count : most; };
  int c = 0;
  for (; outputs - c > Bundle<2>::count; c += Bundle<4>::count)
    demodulateStretch<T, 4>(a, runs, axis, x, y, z, c, upTo(outputs - c, Bundle<4>::count));
  for (; c < outputs; c += Bundle<1>::count)
    demodulateStretch<T, 1>(a, runs, axis, x, y, z, c, upTo(outputs - c, Bundle<1>::count));
}

int lanesPerRegister();
int lanesPerRegister() {
  return Lanes::count;
}

template void demodulateRows<short>(const IqDemodulationArguments&, int, int, int, int);
template void demodulateRows<float>(const IqDemodulationArguments&, int, int, int, int);
template void demodulateLine<short>(const IqDemodulationArguments&, const IqDemodulationRuns&, int, int, int, int);
template void demodulateLine<float>(const IqDemodulationArguments&, const IqDemodulationRuns&, int, int, int, int);

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
