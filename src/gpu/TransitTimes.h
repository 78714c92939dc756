#pragma once

#include "gpu/EventInfo.h"
#include "gpu/KernelMath.h"

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

/// Seconds from time zero until the transmitted wave reaches p; NaN for an unknown event type. With T the time zero
/// point, F the fiducial, S the start of the wave and c the speed of sound:
///
///   focused    (|T - F| + |p - F|) / c beyond the focus, that is where (p - F) . (F - S) > 0, else (|T - F| - |p - F|)
///   / c plane      (p - T) . F / c, F being the direction diverging  (|p - F| - |T - F|) / c
template <typename F> KELVARIS_KERNEL F transmitTransitTime(Point<F> p, const EventInfo& event) {
  const float3 t = event.timeZeroPoint, f = event.waveFiducial, s = event.waveStart;
  const F c = event.speedOfSound;
  if (event.eventType == 0) {
    const F a = distance(t, f);
    const F b = distance(p, f);
    const F q = (p.x - F(f.x)) * F(f.x - s.x) + (p.y - F(f.y)) * F(f.y - s.y) + F((0.0f - f.z) * (f.z - s.z));
    return select(q > F(0.0f), a + b, a - b) / c;
  }
  if (event.eventType == 1) return ((p.x - F(t.x)) * F(f.x) + (p.y - F(t.y)) * F(f.y) + F((0.0f - t.z) * f.z)) / c;
  if (event.eventType == 2) return (distance(p, f) - F(distance(t, f))) / c;
  return notANumber();
}

/// Seconds for an echo from p to the element: |p - element| / c.
template <typename F> KELVARIS_KERNEL F receiveTransitTime(Point<F> p, float3 element, float speedOfSound) {
  return distance(p, element) / F(speedOfSound);
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
