#pragma once

#include "gpu/LaneBundle.h"
#include "gpu/LineFilter.h"

// What the CPU executor shares between the kernels that filter along the lines of an image: bundles of neighbouring
// threads lie side by side across lines, or along one. For source files built by `kelvaris_cpu_variants` only.

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

template <typename T, int n> KELVARIS_KERNEL Bundle<n> toStored(Bundle<n> v) {
  for (Lanes& part : v.part)
    part = toStored<T>(part);
  return v;
}

/// Calls f.operator()<m>(x') for bundles of m registers that cover the `count` threads from x on, m = n at first, then
/// ever smaller. The last bundle starts early enough to end with the row. `count` is at least that of a register.
template <int n, typename F> KELVARIS_KERNEL void forEachBundle(int x, int count, const F& f) {
  for (; count >= Bundle<n>::count; x += Bundle<n>::count, count -= Bundle<n>::count)
    f.template operator()<n>(x);
  if constexpr (n > 1)
    forEachBundle<n / 2>(x, count, f);
  else if (count > 0)
    f.template operator()<1>(x + count - Lanes::count);
}

/// Calls f.operator()<m>(c, m') for bundles of m registers that cover outputs 0 to count - 1 of a line: those of n
/// registers while more than n / 2 are left to fill, then single ones. The last of either has m' < m registers' lanes
/// of outputs; its other lanes are idle.
template <int n, typename F> KELVARIS_KERNEL void forEachStretch(int count, const F& f) {
  const auto upTo = [](int left, int most) { return left < most ? left : most; };
  int c = 0;
  for (; count - c > Bundle<n / 2>::count; c += Bundle<n>::count)
    f.template operator()<n>(c, upTo(count - c, Bundle<n>::count));
  for (; c < count; c += Bundle<1>::count)
    f.template operator()<1>(c, upTo(count - c, Bundle<1>::count));
}

/// Adds the terms of outputs c ... c + count - 1 of one line, which stand in the lanes of `sum`, each with the offsets
/// that tapRange() gives it. `addTerms(sum, line, range)` adds the terms of the same offsets to all lanes;
/// `selectLanes()` picks sums.
template <typename Sum, typename Line>
KELVARIS_KERNEL void addStretch(Sum& sum, const Line& line, int c, int count, int decimationFactor, int filterLength,
                                int samples) {
  const TapRange ofFirst = tapRange(c, decimationFactor, filterLength, samples);
  const TapRange ofLast = tapRange(c + count - 1, decimationFactor, filterLength, samples);
  const int commonEnd = ofLast.end > ofFirst.first ? ofLast.end : ofFirst.first;
  const auto addWhereInside = [&](TapRange taps) {
    for (int k = taps.first; k < taps.end; ++k) {
      Sum next = sum;
      addTerms(next, line, TapRange{k, k + 1});
      sum = selectLanes(-k - c, (samples - 1 - k) / decimationFactor - c, next, sum);
    }
  };
  addWhereInside({ofLast.first, ofFirst.first});
  addTerms(sum, line, TapRange{ofFirst.first, commonEnd});
  addWhereInside({commonEnd, ofFirst.end});
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
