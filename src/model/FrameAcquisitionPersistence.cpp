#include "model/FrameAcquisition.h"

#include "Core/Log.h"
#include "Core/Properties.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"

#include <array>
#include <exception>
#include <stdexcept>
#include <utility>

namespace Kelvaris::US {
namespace {

using EventType = PulseEchoEvent::EventType;

constexpr const char* kCategory = "FrameAcquisition";

/// Calls `f(key, field)` for the parameters of every event type.
template <typename Parameters, typename F> void forEachCommon(Parameters& parameters, F&& f) {
  f("eventType", parameters.eventType);
  f("endDepth", parameters.endDepth);
  f("pulseFrequency", parameters.pulseFrequency);
  f("pulseLength", parameters.pulseLength);
  f("speedOfSound", parameters.speedOfSound);
  f("maxTransmitAperture", parameters.maxTransmitAperture);
  f("maxReceiveAperture", parameters.maxReceiveAperture);
  f("receiveSamplingFrequency", parameters.receiveSamplingFrequency);
}

/// The keys of a plane or diverging wave besides its counts of apertures and events.
template <typename Wave, typename F> void forEachOfWave(Wave& wave, F&& f) {
  if constexpr (requires { wave.planeAngleRange; }) {
    f("planeAngleRange", wave.planeAngleRange);
  } else {
    f("virtualSourceDistance", wave.virtualSourceDistance);
    f("steeringAngleRange", wave.steeringAngleRange);
  }
}

void writeParameters(const FrameParameters& parameters, Properties& properties) {
  const auto write = [&](const char* key, const auto& value) { properties.setParam(key, value); };
  const auto writeWave = [&](const auto& wave) {
    forEachOfWave(wave, write);
    write("numberApertures", wave.numberApertures);
    write("numberEventsPerAperture", wave.numberEventsPerAperture);
  };
  forEachCommon(parameters, write);
  switch (static_cast<EventType>(parameters.eventType)) {
  case EventType::Focused:
    write("focalDepth", parameters.focused.focalDepth);
    write("steeringAngle", parameters.focused.steeringAngle);
    write("numberFocusedBeamsTotal", parameters.focused.numberFocusedBeamsTotal);
    break;
  case EventType::PlaneWave:
    writeWave(parameters.planeWave);
    break;
  case EventType::DivergingWave:
    writeWave(parameters.divergingWave);
    break;
  }
}

void removeParameters(Properties& properties) {
  for (const char* key :
       {"eventType", "endDepth", "pulseFrequency", "pulseLength", "speedOfSound", "maxTransmitAperture",
        "maxReceiveAperture", "receiveSamplingFrequency", "focalDepth", "steeringAngle", "numberFocusedBeamsTotal",
        "planeAngleRange", "virtualSourceDistance", "steeringAngleRange", "numberApertures", "numberEventsPerAperture"})
    properties.removeParam(key);
}

/// A plane or diverging wave in its present form, or in the older one of a single aperture.
template <typename Wave>
bool readWave(const Properties& properties, int numElements, const FrameParameters& common, Wave& wave) {
  bool complete = true;
  const auto read = [&](const char* key, auto& value) { complete = properties.param(key, value) && complete; };
  forEachOfWave(wave, read);
  read("numberApertures", wave.numberApertures);
  read("numberEventsPerAperture", wave.numberEventsPerAperture);
  if (complete) return true;

  if (common.maxReceiveAperture > numElements || common.maxTransmitAperture > numElements) return false;
  complete = true;
  forEachOfWave(wave, read);
  read("numberEvents", wave.numberEventsPerAperture);
  wave.numberApertures = 1;
  return complete;
}

/// Nothing if a parameter is missing or can't be read.
std::optional<FrameParameters> readParameters(const Properties& properties, int numElements) {
  FrameParameters parameters;
  bool complete = true;
  forEachCommon(parameters, [&](const char* key, auto& value) { complete = complete && properties.param(key, value); });
  if (!complete) return std::nullopt;
  switch (static_cast<EventType>(parameters.eventType)) {
  case EventType::Focused:
    complete = properties.param("focalDepth", parameters.focused.focalDepth) &&
               properties.param("steeringAngle", parameters.focused.steeringAngle) &&
               properties.param("numberFocusedBeamsTotal", parameters.focused.numberFocusedBeamsTotal);
    break;
  case EventType::PlaneWave:
    complete = readWave(properties, numElements, parameters, parameters.planeWave);
    break;
  case EventType::DivergingWave:
    complete = readWave(properties, numElements, parameters, parameters.divergingWave);
    break;
  default:
    Log::error(kCategory, "Unknown eventType value {} during configure", parameters.eventType);
    complete = false;
  }
  return complete ? std::optional(parameters) : std::nullopt;
}

} // namespace

bool FrameAcquisition::readEvents(const std::vector<const Properties*>& stored) {
  std::vector<PulseEchoEvent> events;
  events.reserve(stored.size());
  for (const Properties* event : stored)
    if (!events.emplace_back().read(*event)) {
      Log::error(kCategory, "Event {} of {} can't be read", events.size() - 1, stored.size());
      return false;
    }
  m_events = std::move(events);
  return true;
}

void FrameAcquisition::configure(const Properties* properties) {
  if (!properties) return;
  FrameAcquisition result(*this);
  result.m_transducer.configure(properties->findSubProperties("transducer"));

  if (const auto parameters = readParameters(*properties, result.m_transducer.numElements())) {
    result.m_frameParameters = parameters;
    try {
      result.calculateFromFrameParameters();
    } catch (const std::invalid_argument& unusable) {
      Log::error(kCategory, "{}", unusable.what());
      return;
    }
  } else {
    const std::vector<const Properties*> events = properties->allSubProperties("events");
    if (events.empty()) {
      Log::error(kCategory, "Incomplete properties during configure");
      m_transducer = result.m_transducer;
      return;
    }
    if (!result.readEvents(events)) return;
  }

  if (const Properties* rois = properties->findSubProperties("beamformingRois")) {
    result.m_rois = std::make_unique<BeamformingRois>();
    result.m_rois->configure(rois);
  }
  result.m_frameGeometry->configure(properties->findSubProperties("frameGeometry"));
  result.m_ultrasoundMetadata->configure(properties->findSubProperties("metadata"));
  *this = result;
}

bool FrameAcquisition::isReproducedByParameters() const {
  if (!m_frameParameters) return false;
  try {
    return FrameAcquisition(m_transducer, *m_frameParameters) == *this;
  } catch (const std::exception&) { // the transducer has been changed to one that the parameters don't fit
    return false;
  }
}

void FrameAcquisition::configuration(Properties* properties) const {
  if (!properties) return;
  m_transducer.configuration(&properties->subProperties("transducer"));
  if (isReproducedByParameters()) {
    writeParameters(*m_frameParameters, *properties);
  } else {
    // Parameters of an earlier call would be preferred to the events.
    removeParameters(*properties);
    properties->removeSubProperties("events");
    for (const PulseEchoEvent& event : m_events)
      event.configuration(&properties->addSubProperties("events"));
  }
  if (m_rois) m_rois->configuration(&properties->subProperties("beamformingRois"));
  m_frameGeometry->configuration(&properties->subProperties("frameGeometry"));
  m_ultrasoundMetadata->configuration(&properties->subProperties("metadata"));
}

} // namespace Kelvaris::US
