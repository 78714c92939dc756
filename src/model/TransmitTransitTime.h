#pragma once

#include <Eigen/Core>

namespace Kelvaris::US {

class PulseEchoEvent;

/// Time in s from the zero of time until the transmitted wave of the event reaches `point` (mm, frame of the array).
/// With T, F, S and c of PulseEchoEvent:
///
///     focused      (|T - F| + |p - F|) / c  beyond the focus, that is where (F - S) . (p - F) > 0
///                  (|T - F| - |p - F|) / c  elsewhere
///     plane wave   (p - T) . F / c
///     diverging    (|p - F| - |T - F|) / c
///
/// 0 for any other event type. The beamforming kernel has the same rule in single precision.
double transmitTransitTime(const Eigen::Vector3d& point, const PulseEchoEvent& event);

} // namespace Kelvaris::US
