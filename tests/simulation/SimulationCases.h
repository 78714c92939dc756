#pragma once

#include "model/AcquisitionSequence.h"

#include <functional>
#include <numbers>

namespace Kelvaris::Tests {

using US::AcquisitionSequence;
using US::FrameAcquisition;
using US::PulseEchoEvent;
using US::Transducer;

inline const Transducer kStraight = Transducer::createLinear(16, 0.3);
inline const Transducer kCurved = Transducer::createConvex(16, 0.4, 20.0);

/// Three events of 16 or fewer channels, and short recordings: 0 focused, 1 plane waves, 2 diverging waves.
inline FrameAcquisition shortFrame(int eventType, int transmitAperture = 16, int receiveAperture = 16,
                                   const Transducer& transducer = kStraight) {
  US::FrameParameters p;
  p.eventType = eventType;
  p.endDepth = 12.0;
  p.pulseFrequency = 4e6;
  p.pulseLength = 2.0;
  p.speedOfSound = 1.54e6;
  p.maxTransmitAperture = transmitAperture;
  p.maxReceiveAperture = receiveAperture;
  p.receiveSamplingFrequency = 2e7;
  p.focused = {.focalDepth = 10.0, .steeringAngle = 0.1, .numberFocusedBeamsTotal = 3};
  p.planeWave = {.planeAngleRange = std::numbers::pi / 8, .numberApertures = 1, .numberEventsPerAperture = 3};
  p.divergingWave = {.virtualSourceDistance = 8.0,
                     .steeringAngleRange = std::numbers::pi / 8,
                     .numberApertures = 1,
                     .numberEventsPerAperture = 3};
  return {transducer, p};
}

/// The frame after a change of each of its events.
inline FrameAcquisition changed(FrameAcquisition frame, const std::function<void(PulseEchoEvent&, int index)>& change) {
  for (std::size_t e = 0; e < frame.events().size(); ++e)
    change(frame.events()[e], static_cast<int>(e));
  return frame;
}

} // namespace Kelvaris::Tests
