#pragma once

#include "model/FrameAcquisition.h"

namespace Kelvaris::Tests {

using US::FrameParameters;
using US::Transducer;

/// The values that the form of a frame acquisition starts with; 0 focused, 1 plane waves, 2 diverging waves.
inline FrameParameters formParameters(int eventType) {
  constexpr double range = std::numbers::pi / 6.0;
  return {.eventType = eventType,
          .endDepth = 20.0,
          .pulseFrequency = 2e6,
          .pulseLength = 2.0,
          .speedOfSound = 1.54e6,
          .maxTransmitAperture = 64,
          .maxReceiveAperture = 64,
          .receiveSamplingFrequency = 1e7,
          .focused = {.focalDepth = 40.0, .steeringAngle = 0.0, .numberFocusedBeamsTotal = 16},
          .planeWave = {.planeAngleRange = range, .numberApertures = 4, .numberEventsPerAperture = 16},
          .divergingWave = {.virtualSourceDistance = 10.0,
                            .steeringAngleRange = range,
                            .numberApertures = 4,
                            .numberEventsPerAperture = 16}};
}

/// Form parameters after a change.
template <typename Change> FrameParameters changed(int eventType, Change change) {
  FrameParameters parameters = formParameters(eventType);
  change(parameters);
  return parameters;
}

const Transducer kLinearArray = Transducer::createLinear(128, 0.3);
const Transducer kConvexArray = Transducer::createConvex(128, 0.4, 50.0);

} // namespace Kelvaris::Tests
