#include "model/TransmitTransitTime.h"

#include "model/PulseEchoEvent.h"

namespace Kelvaris::US {

double transmitTransitTime(const Eigen::Vector3d& point, const PulseEchoEvent& event) {
  const double c = event.transmit.speedOfSound;
  const Eigen::Vector3d &t = event.transmit.timeZeroPoint, &f = event.transmit.waveFiducial;
  switch (event.transmit.eventType) {
  case PulseEchoEvent::EventType::Focused: {
    const double toFocus = (t - f).norm(), fromFocus = (point - f).norm();
    const bool beyondFocus = (f - event.transmit.waveStart).dot(point - f) > 0.0;
    return (beyondFocus ? toFocus + fromFocus : toFocus - fromFocus) / c;
  }
  case PulseEchoEvent::EventType::PlaneWave:
    return (point - t).dot(f) / c;
  case PulseEchoEvent::EventType::DivergingWave:
    return ((point - f).norm() - (t - f).norm()) / c;
  }
  return 0.0;
}

} // namespace Kelvaris::US
