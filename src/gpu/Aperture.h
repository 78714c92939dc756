#pragma once

#include "gpu/ElementSearch.h"
#include "gpu/EventInfo.h"
#include "gpu/KernelMath.h"

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

/// The element at the centre of a pixel's aperture and its distance. Indices are whole numbers in floats, so that
/// conditions on them stay in one kind of lane; they are exact below 2^24.
template <typename F> struct ApertureCenter {
  F element;
  F distance; ///< mm
};

/// The element nearest to p among first + 1 ... last, ties to the lower index. The element `first` itself is not looked
/// at: it is the centre only where no other is nearer than infinity (last <= first, or p is NaN).
template <typename F>
KELVARIS_KERNEL ApertureCenter<F> idealApertureCenter(Point<F> p, const float3* elementPositions, int first, int last,
                                                      const ElementSearch& search) {
  F best = infinity();
  F center = static_cast<float>(first);
  const ElementWindow window = candidates(search, p, first + 1, last);
  for (int i = window.begin; i <= window.last; ++i) {
    const F d = distance(p, elementPositions[i]);
    const auto nearer = d < best;
    best = select(nearer, d, best);
    center = select(nearer, F(static_cast<float>(i)), center);
  }
  const auto found = best < F(infinity());
  if (any(!found)) best = select(found, best, distance(p, elementPositions[first]));
  return {center, best};
}

/// A receive aperture: the elements first ... last (inclusive), none where last < first.
template <typename F> struct Aperture {
  F first, last;

  KELVARIS_KERNEL auto isEmpty() const { return last < first; }
  /// Nominal number of elements.
  KELVARIS_KERNEL F size() const { return last - first + F(1.0f); }
};

/// The aperture of F-number distance / width around the nearest element, clipped to the event's receive aperture: its
/// full width is round(distance / fNumber / pitch) elements, halves away from zero, of which half (truncated) go to
/// each side. An infinite width is the whole receive aperture, NaN is width 0.
template <typename F>
KELVARIS_KERNEL Aperture<F> receiveAperture(Point<F> p, const float3* elementPositions, const EventInfo& event,
                                            float fNumber, float pitch, const ElementSearch& search) {
  const F first = static_cast<float>(event.apertureFirst), last = static_cast<float>(event.apertureLast);
  const ApertureCenter<F> center =
      idealApertureCenter(p, elementPositions, event.apertureFirst, event.apertureLast, search);
  F fullWidth = roundHalfAway(center.distance / F(fNumber) / F(pitch));
  // As an integer: NaN is 0, and beyond 2^31 it saturates; anything from 2^25 on reaches past both ends of any array.
  fullWidth = select(isNan(fullWidth), F(0.0f), fullWidth);
  fullWidth = select(fullWidth > F(0x1p31f), F(0x1p31f), fullWidth);
  fullWidth = select(fullWidth < F(-0x1p31f), F(-0x1p31f), fullWidth);
  const F half = truncate(fullWidth * F(0.5f));
  const F a0 = center.element - half, a1 = center.element + half;
  return {select(a0 > first, a0, first), select(a1 < last, a1, last)};
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
