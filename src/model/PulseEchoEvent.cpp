#include "model/PulseEchoEvent.h"

#include "Core/Log.h"
#include "model/PropertyReading.h"
#include "model/Transducer.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <tuple>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "PulseEchoEvent";

using EventType = PulseEchoEvent::EventType;

/// Everything but the time zero point.
PulseEchoEvent createEvent(const Transducer& transducer, EventType eventType, const Eigen::Vector3d& origin,
                           const Eigen::Vector3d& waveFiducial, int transmitAperture, int receiveAperture) {
  PulseEchoEvent event;
  event.transmit.eventType = eventType;
  event.transmit.waveStart = origin;
  event.transmit.waveFiducial = waveFiducial;
  std::tie(event.transmit.apertureFirst, event.transmit.apertureLast) =
      calculateAperture(transducer, origin, transmitAperture).value();
  std::tie(event.receive.apertureFirst, event.receive.apertureLast) =
      calculateAperture(transducer, origin, receiveAperture).value();
  event.receive.elementToChannelMapping =
      calculateElementToChannelMapping(event.receive.apertureFirst, event.receive.apertureLast, receiveAperture);
  return event;
}

/// The element of the transmit aperture with the least value of `cost` below `start`, else the present point.
template <typename Cost>
void findTimeZeroPoint(PulseEchoEvent::Transmit& transmit, const Transducer& transducer, double start, Cost cost) {
  const std::vector<Eigen::Vector3d> elements = transducer.elementPositions();
  double best = start;
  for (int i = transmit.apertureFirst; i <= transmit.apertureLast; ++i) {
    const Eigen::Vector3d& element = elements[static_cast<std::size_t>(i)];
    if (const double value = cost(element); value < best) {
      best = value;
      transmit.timeZeroPoint = element;
    }
  }
}

bool readTransmit(const Properties& properties, PulseEchoEvent::Transmit& transmit) {
  int eventType = static_cast<int>(transmit.eventType);
  const bool readable = readIfPresent(properties, "pulseFrequency", transmit.pulseFrequency) &&
                        readIfPresent(properties, "pulseLength", transmit.pulseLength) &&
                        readIfPresent(properties, "speedOfSound", transmit.speedOfSound) &&
                        readIfPresent(properties, "apertureFirst", transmit.apertureFirst) &&
                        readIfPresent(properties, "apertureLast", transmit.apertureLast) &&
                        readIfPresent(properties, "eventType", eventType) &&
                        readIfPresent(properties, "timeZeroPoint", transmit.timeZeroPoint) &&
                        readIfPresent(properties, "waveFiducial", transmit.waveFiducial) &&
                        readIfPresent(properties, "waveStart", transmit.waveStart);
  transmit.eventType = static_cast<EventType>(eventType);
  return readable;
}

bool readReceive(const Properties& properties, PulseEchoEvent::Receive& receive) {
  return readIfPresent(properties, "apertureFirst", receive.apertureFirst) &&
         readIfPresent(properties, "apertureLast", receive.apertureLast) &&
         readIfPresent(properties, "samplingFrequency", receive.samplingFrequency) &&
         readIfPresent(properties, "startTime", receive.startTime) &&
         readIfPresent(properties, "endTime", receive.endTime) &&
         readIfPresent(properties, "elementToChannelMapping", receive.elementToChannelMapping);
}

} // namespace

std::vector<double> PulseEchoEvent::Transmit::calculateDelays(const Transducer& transducer) const {
  const std::vector<Eigen::Vector3d> elements = transducer.elementPositions();
  if (apertureFirst <= apertureLast && (apertureFirst < 0 || apertureLast >= transducer.numElements()))
    throw std::invalid_argument(fmt::format("The transmit aperture from element {} to {} lies beyond the array, whose "
                                            "elements are 0 to {}",
                                            apertureFirst, apertureLast, transducer.numElements() - 1));
  const double c = speedOfSound;
  const Eigen::Vector3d &t = timeZeroPoint, &f = waveFiducial;
  std::vector<double> delays;
  for (int i = apertureFirst; i <= apertureLast; ++i) {
    const Eigen::Vector3d& e = elements[static_cast<std::size_t>(i)];
    switch (eventType) {
    case EventType::Focused:
      delays.push_back((t - f).norm() / c - (e - f).norm() / c);
      break;
    case EventType::PlaneWave:
      delays.push_back((e - t).dot(f) / c);
      break;
    case EventType::DivergingWave:
      delays.push_back((f - e).norm() / c - (f - t).norm() / c);
      break;
    }
  }

  for (double& delay : delays)
    if (delay > -1e-20 && delay < 0.0) delay = 0.0;
  if (std::any_of(delays.begin(), delays.end(), [](double delay) { return delay < 0.0; }))
    Log::warning(kCategory, "There are negative delays, this might be unsupported by the ultrasound hardware");
  if (std::none_of(delays.begin(), delays.end(), [](double delay) { return delay <= 1e-9; }))
    Log::warning(kCategory, "There is no zero delay, this might lead to shift in zero time");
  return delays;
}

bool PulseEchoEvent::Transmit::operator==(const Transmit& other) const {
  return pulseFrequency == other.pulseFrequency && pulseLength == other.pulseLength &&
         speedOfSound == other.speedOfSound && apertureFirst == other.apertureFirst &&
         apertureLast == other.apertureLast && timeZeroPoint == other.timeZeroPoint && eventType == other.eventType &&
         waveFiducial == other.waveFiducial;
}

bool PulseEchoEvent::Receive::operator==(const Receive& other) const {
  return apertureFirst == other.apertureFirst && apertureLast == other.apertureLast &&
         samplingFrequency == other.samplingFrequency && startTime == other.startTime && endTime == other.endTime &&
         elementToChannelMapping == other.elementToChannelMapping;
}

PulseEchoEvent PulseEchoEvent::createPlaneWave(const Transducer& transducer, const Eigen::Vector3d& origin,
                                               double angle, int transmitAperture, int receiveAperture) {
  const Eigen::Vector3d direction(std::sin(angle), std::cos(angle), 0.0);
  PulseEchoEvent event =
      createEvent(transducer, EventType::PlaneWave, origin, direction, transmitAperture, receiveAperture);
  findTimeZeroPoint(event.transmit, transducer, std::numeric_limits<double>::max(),
                    [&](const Eigen::Vector3d& element) { return element.dot(direction); });
  return event;
}

PulseEchoEvent PulseEchoEvent::createFocused(const Transducer& transducer, const Eigen::Vector3d& origin,
                                             const Eigen::Vector3d& focus, int transmitAperture, int receiveAperture) {
  PulseEchoEvent event = createEvent(transducer, EventType::Focused, origin, focus, transmitAperture, receiveAperture);
  findTimeZeroPoint(event.transmit, transducer, 0.0,
                    [&](const Eigen::Vector3d& element) { return -(element - focus).norm(); });
  return event;
}

PulseEchoEvent PulseEchoEvent::createDivergingWave(const Transducer& transducer, const Eigen::Vector3d& origin,
                                                   const Eigen::Vector3d& virtualSource, int transmitAperture,
                                                   int receiveAperture) {
  PulseEchoEvent event =
      createEvent(transducer, EventType::DivergingWave, origin, virtualSource, transmitAperture, receiveAperture);
  findTimeZeroPoint(event.transmit, transducer, std::numeric_limits<double>::max(),
                    [&](const Eigen::Vector3d& element) { return (element - virtualSource).norm(); });
  return event;
}

void PulseEchoEvent::configure(const Properties* properties) {
  if (properties) read(*properties);
}

bool PulseEchoEvent::read(const Properties& properties) {
  const Properties* storedTransmit = properties.findSubProperties("transmit");
  const Properties* storedReceive = properties.findSubProperties("receive");
  if (!storedTransmit || !storedReceive) return true;
  Transmit newTransmit = transmit;
  Receive newReceive = receive;
  if (!readTransmit(*storedTransmit, newTransmit) || !readReceive(*storedReceive, newReceive)) return false;
  transmit = newTransmit;
  receive = std::move(newReceive);
  return true;
}

void PulseEchoEvent::configuration(Properties* properties) const {
  if (!properties) return;
  Properties& storedTransmit = properties->subProperties("transmit");
  storedTransmit.setParam("pulseFrequency", transmit.pulseFrequency);
  storedTransmit.setParam("pulseLength", transmit.pulseLength);
  storedTransmit.setParam("speedOfSound", transmit.speedOfSound);
  storedTransmit.setParam("apertureFirst", transmit.apertureFirst);
  storedTransmit.setParam("apertureLast", transmit.apertureLast);
  storedTransmit.setParam("eventType", static_cast<int>(transmit.eventType));
  storedTransmit.setParam("timeZeroPoint", transmit.timeZeroPoint);
  storedTransmit.setParam("waveFiducial", transmit.waveFiducial);
  storedTransmit.setParam("waveStart", transmit.waveStart);

  Properties& storedReceive = properties->subProperties("receive");
  storedReceive.setParam("apertureFirst", receive.apertureFirst);
  storedReceive.setParam("apertureLast", receive.apertureLast);
  storedReceive.setParam("samplingFrequency", receive.samplingFrequency);
  storedReceive.setParam("startTime", receive.startTime);
  storedReceive.setParam("endTime", receive.endTime);
  storedReceive.setParam("elementToChannelMapping", receive.elementToChannelMapping);
}

std::optional<std::pair<int, int>> calculateAperture(const Transducer& transducer, const Eigen::Vector3d& position,
                                                     int size) {
  if (size <= 0) {
    Log::error(kCategory, "empty aperture requested");
    return std::nullopt;
  }
  if (size >= transducer.numElements()) return std::pair(0, transducer.numElements() - 1);

  std::vector<double> distances;
  distances.reserve(static_cast<std::size_t>(transducer.numElements()));
  for (const Eigen::Vector3d& element : transducer.elementPositions()) {
    distances.push_back((element - position).norm());
    if (std::isnan(distances.back()))
      throw std::invalid_argument(fmt::format("No aperture around ({}, {}, {}): its distance to element {} at ({}, {}, "
                                              "{}) is not a number",
                                              position.x(), position.y(), position.z(), distances.size() - 1,
                                              element.x(), element.y(), element.z()));
  }
  std::vector<double> sorted = distances;
  const auto nth = sorted.begin() + (size - 1);
  std::nth_element(sorted.begin(), nth, sorted.end());
  const auto nearEnough = std::find_if(distances.begin(), distances.end(), [&](double d) { return d <= *nth; });
  const int first = static_cast<int>(nearEnough - distances.begin());
  return std::pair(first, first + size - 1);
}

std::vector<int> calculateElementToChannelMapping(int first, int last, int numberChannels) {
  if (numberChannels == 0)
    throw std::invalid_argument(fmt::format("Elements {} to {} can't be mapped to 0 channels", first, last));
  std::vector<int> channels;
  for (long element = first; element <= last; ++element)
    channels.push_back(static_cast<int>(element % numberChannels));
  return channels;
}

} // namespace Kelvaris::US
