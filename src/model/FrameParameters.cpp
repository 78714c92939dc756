#include "model/FrameParameters.h"

#include "model/PulseEchoEvent.h"
#include "model/Transducer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace Kelvaris::US {
namespace {

using EventType = PulseEchoEvent::EventType;

template <typename Value> void require(bool holds, const char* name, Value value, const char* needed) {
  if (!holds) throw std::invalid_argument(fmt::format("The frame's {} is {}, but it must be {}", name, value, needed));
}

void requireFinite(const char* name, double value) {
  require(std::isfinite(value), name, value, "a finite number");
}

void requirePositive(const char* name, double value) {
  require(std::isfinite(value) && value > 0.0, name, value, "a finite number above 0");
}

void requireNotNegative(const char* name, double value) {
  require(std::isfinite(value) && value >= 0.0, name, value, "a finite number, at least 0");
}

void requireCount(const char* name, int value) {
  if (value < 0 || value > FrameLimits::maxEvents)
    throw std::invalid_argument(
        fmt::format("The frame's {} is {}, but it must be 0 to {}", name, value, FrameLimits::maxEvents));
}

void checkArray(const Transducer& transducer, long long numEvents) {
  const int n = transducer.numElements();
  if ((n < 1 && numEvents > 0) || n > Transducer::kMaxStoredElements)
    throw std::invalid_argument(
        fmt::format("The transducer has {} elements, but a frame needs 1 to {}", n, Transducer::kMaxStoredElements));
  requireNotNegative("transducer pitch", transducer.pitch());
  if (transducer.isConvex()) requirePositive("transducer radius of curvature", *transducer.radiusCurvature());
  if (numEvents > FrameLimits::maxEvents || numEvents * n > FrameLimits::maxEventElements)
    throw std::invalid_argument(fmt::format("{} events of {} elements are too many: at most {} events, and at most {} "
                                            "elements in all events together",
                                            numEvents, n, FrameLimits::maxEvents, FrameLimits::maxEventElements));
}

/// Number of events of plane or diverging waves.
long long checkApertures(const Transducer& transducer, const FrameParameters& parameters, int numberApertures,
                         int numberEventsPerAperture) {
  requireCount("numberApertures", numberApertures);
  requireCount("numberEventsPerAperture", numberEventsPerAperture);
  const int aperture = std::max(parameters.maxReceiveAperture, parameters.maxTransmitAperture);
  if (numberApertures > 0 && aperture > transducer.numElements())
    throw std::invalid_argument(fmt::format("Plane and diverging waves need apertures within the array, but "
                                            "maxTransmitAperture is {}, maxReceiveAperture {}, and the array has {} "
                                            "elements",
                                            parameters.maxTransmitAperture, parameters.maxReceiveAperture,
                                            transducer.numElements()));
  return static_cast<long long>(numberApertures) * numberEventsPerAperture;
}

} // namespace

void checkFrameParameters(const Transducer& transducer, const FrameParameters& parameters) {
  long long numEvents = 0;
  switch (static_cast<EventType>(parameters.eventType)) {
  case EventType::Focused:
    requireFinite("focalDepth", parameters.focused.focalDepth);
    requireFinite("steeringAngle", parameters.focused.steeringAngle);
    requireCount("numberFocusedBeamsTotal", parameters.focused.numberFocusedBeamsTotal);
    numEvents = parameters.focused.numberFocusedBeamsTotal;
    break;
  case EventType::PlaneWave:
    requireFinite("planeAngleRange", parameters.planeWave.planeAngleRange);
    numEvents = checkApertures(transducer, parameters, parameters.planeWave.numberApertures,
                               parameters.planeWave.numberEventsPerAperture);
    break;
  case EventType::DivergingWave:
    requireFinite("virtualSourceDistance", parameters.divergingWave.virtualSourceDistance);
    requireFinite("steeringAngleRange", parameters.divergingWave.steeringAngleRange);
    numEvents = checkApertures(transducer, parameters, parameters.divergingWave.numberApertures,
                               parameters.divergingWave.numberEventsPerAperture);
    break;
  default:
    return;
  }
  checkArray(transducer, numEvents);
  requireNotNegative("endDepth", parameters.endDepth);
  requirePositive("pulseFrequency", parameters.pulseFrequency);
  requireFinite("pulseLength", parameters.pulseLength);
  requirePositive("speedOfSound", parameters.speedOfSound);
  requireFinite("receiveSamplingFrequency", parameters.receiveSamplingFrequency);
  const double wavelength = parameters.speedOfSound / parameters.pulseFrequency;
  if (!(parameters.endDepth / wavelength * 3.0 <= FrameLimits::maxRows))
    throw std::invalid_argument(
        fmt::format("An endDepth of {} mm is {} wavelengths of {} mm, but a frame has at most {} rows, three a "
                    "wavelength",
                    parameters.endDepth, parameters.endDepth / wavelength, wavelength, FrameLimits::maxRows));
}

} // namespace Kelvaris::US
