#include "model/FrameAcquisition.h"

#include "Core/Log.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Kelvaris::US {
namespace {

using EventType = PulseEchoEvent::EventType;

constexpr double kSplineTolerance = 1e-10; // mm

bool areEqual(const FrameGeometryMetadata& a, const FrameGeometryMetadata& b) {
  if (&a == &b) return true;
  if (!a.frameGeometry() || !b.frameGeometry()) return !a.frameGeometry() && !b.frameGeometry();
  return a.frameGeometry()->isApprox(*b.frameGeometry(), 0.001);
}

} // namespace

FrameAcquisition::FrameAcquisition()
    : m_frameGeometry(std::make_unique<FrameGeometryMetadata>()),
      m_ultrasoundMetadata(std::make_unique<UltrasoundMetadata>()) {}

FrameAcquisition::FrameAcquisition(Transducer transducer, std::vector<PulseEchoEvent> events) : FrameAcquisition() {
  m_transducer = std::move(transducer);
  m_events = std::move(events);
}

FrameAcquisition::FrameAcquisition(Transducer transducer, FrameParameters parameters) : FrameAcquisition() {
  m_transducer = std::move(transducer);
  m_frameParameters = parameters;
  calculateFromFrameParameters();
}

FrameAcquisition::FrameAcquisition(const FrameAcquisition& other)
    : DataComponent(other),
      m_transducer(other.m_transducer),
      m_frameParameters(other.m_frameParameters),
      m_events(other.m_events),
      m_rois(other.m_rois ? std::make_unique<BeamformingRois>(*other.m_rois) : nullptr),
      m_frameGeometry(std::make_unique<FrameGeometryMetadata>(*other.m_frameGeometry)),
      m_ultrasoundMetadata(std::make_unique<UltrasoundMetadata>(*other.m_ultrasoundMetadata)) {}

FrameAcquisition& FrameAcquisition::operator=(const FrameAcquisition& other) {
  if (this == &other) return *this;
  FrameAcquisition copy(other);
  m_transducer = copy.m_transducer;
  m_frameParameters = copy.m_frameParameters;
  m_events.swap(copy.m_events);
  m_rois.swap(copy.m_rois);
  m_frameGeometry.swap(copy.m_frameGeometry);
  m_ultrasoundMetadata.swap(copy.m_ultrasoundMetadata);
  return *this;
}

FrameAcquisition::~FrameAcquisition() = default;

void FrameAcquisition::setReceiveSamplingFrequency(double frequency) {
  if (m_frameParameters) m_frameParameters->receiveSamplingFrequency = frequency;
  for (PulseEchoEvent& event : m_events)
    event.receive.samplingFrequency = frequency;
}

bool FrameAcquisition::operator==(const FrameAcquisition& other) const {
  if (this == &other) return true;
  if (m_transducer != other.m_transducer || m_events != other.m_events) return false;
  if (m_rois != other.m_rois && (!m_rois || !other.m_rois || *m_rois != *other.m_rois)) return false;
  return areEqual(*m_frameGeometry, *other.m_frameGeometry) && *m_ultrasoundMetadata == *other.m_ultrasoundMetadata;
}

void FrameAcquisition::calculateFromFrameParameters() {
  const FrameParameters& parameters = m_frameParameters.value();
  checkFrameParameters(m_transducer, parameters);
  switch (static_cast<EventType>(parameters.eventType)) {
  case EventType::Focused:
    return calculateFocused();
  case EventType::PlaneWave:
    return calculatePlaneWave();
  case EventType::DivergingWave:
    return calculateDivergingWave();
  }
  Log::error("FrameAcquisition", "Unknown eventType value {} during configure", parameters.eventType);
}

void FrameAcquisition::fillEventHighlevelParameters(PulseEchoEvent& event, const FrameParameters& parameters) const {
  event.transmit.pulseFrequency = parameters.pulseFrequency;
  event.transmit.pulseLength = parameters.pulseLength;
  event.transmit.speedOfSound = parameters.speedOfSound;
  event.receive.samplingFrequency = parameters.receiveSamplingFrequency;
  event.receive.startTime = 0.0;
  // Down to the end depth and back along the diagonal to an element a whole receive aperture away, and 2 % more.
  const double aside = m_transducer.pitch() * static_cast<double>(parameters.maxReceiveAperture);
  const double depth = parameters.endDepth;
  event.receive.endTime = 1.02 * (depth + std::sqrt(aside * aside + depth * depth)) / parameters.speedOfSound;
}

void FrameAcquisition::calculateFocused() {
  const FrameParameters& parameters = m_frameParameters.value();
  const FrameParameters::Focused& focused = parameters.focused;
  const int numBeams = focused.numberFocusedBeamsTotal;
  std::vector<Eigen::Vector3d> origins;
  if (numBeams == 1) {
    m_transducer.shape().getUniformSamples(3, origins, kSplineTolerance);
    origins = {origins.at(1)};
  } else {
    m_transducer.shape().getUniformSamples(numBeams, origins, kSplineTolerance);
  }

  double angle = focused.steeringAngle, step = 0.0;
  if (m_transducer.isConvex()) {
    const double total = (m_transducer.numElements() - 1) * m_transducer.pitch() / *m_transducer.radiusCurvature();
    angle = focused.steeringAngle - total * 0.5; // a single beam keeps this edge angle
    step = total / (numBeams - 1);
  }

  m_events.clear();
  m_events.reserve(static_cast<std::size_t>(numBeams));
  for (const Eigen::Vector3d& origin : origins) {
    const Eigen::Vector3d focus = origin + focused.focalDepth * Eigen::Vector3d(std::sin(angle), std::cos(angle), 0.0);
    m_events.push_back(PulseEchoEvent::createFocused(m_transducer, origin, focus, parameters.maxTransmitAperture,
                                                     parameters.maxReceiveAperture));
    fillEventHighlevelParameters(m_events.back(), parameters);
    angle += step;
  }
  calculateFocusedMetadata();
  fillEndTimeFocused();
}

std::vector<Eigen::Vector3d> FrameAcquisition::apertureOrigins(int numberApertures) const {
  const int aperture = std::max(m_frameParameters->maxReceiveAperture, m_frameParameters->maxTransmitAperture);
  std::vector<Eigen::Vector3d> origins;
  if (aperture < 1) {
    // There is no centre of nothing; what an event around it throws is thrown by any origin.
    origins.resize(static_cast<std::size_t>(numberApertures), Eigen::Vector3d::Zero());
    return origins;
  }
  const std::vector<Eigen::Vector3d> elements = m_transducer.elementPositions();
  const double step =
      numberApertures == 1 ? 0.0 : static_cast<double>(m_transducer.numElements() - aperture) / (numberApertures - 1);
  for (int i = 0; i < numberApertures; ++i) {
    const auto first = static_cast<std::size_t>(std::round(i * step));
    const auto last = first + static_cast<std::size_t>(aperture) - 1;
    origins.push_back((elements[first] + elements[last]) * 0.5);
  }
  return origins;
}

void FrameAcquisition::calculatePlaneWave() {
  const FrameParameters& parameters = m_frameParameters.value();
  const FrameParameters::PlaneWave& wave = parameters.planeWave;
  const std::vector<Eigen::Vector3d> origins = apertureOrigins(wave.numberApertures);
  m_events.clear();
  m_events.reserve(origins.size() * static_cast<std::size_t>(wave.numberEventsPerAperture));
  const double start = -wave.planeAngleRange * 0.5;
  const double angleStep = wave.planeAngleRange / std::max(wave.numberEventsPerAperture - 1, 1);
  for (const Eigen::Vector3d& origin : origins)
    for (int e = 0; e < wave.numberEventsPerAperture; ++e) {
      m_events.push_back(PulseEchoEvent::createPlaneWave(
          m_transducer, origin, e * angleStep + start, parameters.maxTransmitAperture, parameters.maxReceiveAperture));
      fillEventHighlevelParameters(m_events.back(), parameters);
    }
  calculatePlaneWaveMetadata();
  fillEndTimeUltrafast();
}

void FrameAcquisition::calculateDivergingWave() {
  const FrameParameters& parameters = m_frameParameters.value();
  const FrameParameters::DivergingWave& wave = parameters.divergingWave;
  const std::vector<Eigen::Vector3d> origins = apertureOrigins(wave.numberApertures);
  m_events.clear();
  m_events.reserve(origins.size() * static_cast<std::size_t>(wave.numberEventsPerAperture));
  const double start = -wave.steeringAngleRange * 0.5;
  // Divides by zero for a single event, whose angle then isn't a number (0 * infinity).
  const double angleStep = wave.steeringAngleRange / (wave.numberEventsPerAperture - 1);
  for (const Eigen::Vector3d& origin : origins)
    for (int e = 0; e < wave.numberEventsPerAperture; ++e) {
      const double angle = e * angleStep + start;
      const Eigen::Vector3d virtualSource =
          origin - wave.virtualSourceDistance * Eigen::Vector3d(std::sin(angle), std::cos(angle), 0.0);
      m_events.push_back(PulseEchoEvent::createDivergingWave(
          m_transducer, origin, virtualSource, parameters.maxTransmitAperture, parameters.maxReceiveAperture));
      fillEventHighlevelParameters(m_events.back(), parameters);
    }
  calculateDivergingWaveMetadata();
  fillEndTimeUltrafast();
}

} // namespace Kelvaris::US
