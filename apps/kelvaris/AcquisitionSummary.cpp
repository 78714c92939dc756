#include "kelvaris/AcquisitionSummary.h"

#include <Eigen/Core>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <string>

namespace Kelvaris::CommandLine {
namespace {

constexpr int kMostElements = AcquisitionLimits::maxElements;

/// Most events of a frame for an array of `numElements`.
int mostEvents(int numElements) {
  return std::min(AcquisitionLimits::maxEvents, AcquisitionLimits::maxEventElements / numElements);
}

[[noreturn]] void fail(const std::string& text) {
  throw std::invalid_argument("The acquisition is broken: " + text);
}

template <typename T> T value(const Properties& properties, const char* key, const std::string& where) {
  T result{};
  if (!properties.param(key, result)) fail(fmt::format("{} has no readable \"{}\"", where, key));
  return result;
}

double positive(const Properties& properties, const char* key, const std::string& where) {
  const double result = value<double>(properties, key, where);
  if (!(std::isfinite(result) && result > 0.0))
    fail(fmt::format("\"{}\" of {} is {}, it must be a number above 0", key, where, result));
  return result;
}

int count(const Properties& properties, const char* key, int most) {
  const int result = value<int>(properties, key, "it");
  if (result < 1 || result > most) fail(fmt::format("\"{}\" is {}, it must be 1 to {}", key, result, most));
  return result;
}

/// First and last element of the aperture stored in `properties`.
std::pair<int, int> aperture(const Properties& properties, const std::string& where, int numElements) {
  const int first = value<int>(properties, "apertureFirst", where),
            last = value<int>(properties, "apertureLast", where);
  if (first < 0 || last < first || last >= numElements)
    fail(fmt::format("the aperture of {} reaches from element {} to {}, but the array has the elements 0 to {}", where,
                     first, last, numElements - 1));
  return {first, last};
}

AcquisitionSummary::Event readEvent(const Properties& stored, const std::string& name, AcquisitionSummary& summary) {
  const Properties* transmit = stored.findSubProperties("transmit");
  const Properties* receive = stored.findSubProperties("receive");
  if (!transmit || !receive) fail(name + " lacks \"transmit\" or \"receive\"");

  AcquisitionSummary::Event event;
  const std::string sending = "the transmission of " + name, receiving = "the reception of " + name;
  std::tie(event.transmitFirst, event.transmitLast) = aperture(*transmit, sending, summary.numElements);
  std::tie(event.receiveFirst, event.receiveLast) = aperture(*receive, receiving, summary.numElements);
  const double pulseFrequency = positive(*transmit, "pulseFrequency", sending);
  positive(*transmit, "speedOfSound", sending);
  const int type = value<int>(*transmit, "eventType", sending);
  if (type < 0 || type > 2)
    fail(fmt::format("\"eventType\" of {} is {}, there are 0 (focused), 1 (plane wave) and 2 (diverging wave)", sending,
                     type));
  for (const char* key : {"timeZeroPoint", "waveFiducial", "waveStart"})
    if (!value<Eigen::Vector3d>(*transmit, key, sending).allFinite())
      fail(fmt::format("\"{}\" of {} is no point", key, sending));

  const double frequency = positive(*receive, "samplingFrequency", receiving);
  const double start = value<double>(*receive, "startTime", receiving),
               end = value<double>(*receive, "endTime", receiving);
  const double samples = (end - start) * frequency;
  if (!(samples > 0.0 && samples < 1e9)) fail(fmt::format("{} starts at {} s and ends at {} s", receiving, start, end));

  event.channels = value<std::vector<int>>(*receive, "elementToChannelMapping", receiving);
  const auto size = static_cast<std::size_t>(event.receiveLast - event.receiveFirst) + 1;
  if (event.channels.size() != size)
    fail(fmt::format("{} maps {} elements to channels, its aperture has {}", receiving, event.channels.size(), size));
  const auto [lowest, highest] = std::minmax_element(event.channels.begin(), event.channels.end());
  if (*lowest < 0 || *highest >= kMostElements)
    fail(fmt::format("{} maps elements to the channels {} to {}, they must be 0 to {}", receiving, *lowest, *highest,
                     kMostElements - 1));
  summary.numChannels = std::max(summary.numChannels, *highest + 1);
  summary.samples = std::max(summary.samples.value_or(0), std::lround(samples));
  if (summary.samplingFrequency == 0.0) {
    summary.samplingFrequency = frequency;
    summary.pulseFrequency = pulseFrequency;
    summary.eventType = type;
    summary.numTransmitting = event.transmitLast - event.transmitFirst + 1;
  }
  return event;
}

/// Whether `properties` hold the parameters of a frame, and if so, what they come to.
bool readParameters(const Properties& properties, AcquisitionSummary& summary) {
  const auto has = [&](std::initializer_list<const char*> keys) {
    return std::all_of(keys.begin(), keys.end(), [&](const char* key) { return properties.hasParam(key); });
  };
  if (!has({"eventType", "endDepth", "pulseFrequency", "pulseLength", "speedOfSound", "maxTransmitAperture",
            "maxReceiveAperture", "receiveSamplingFrequency"}))
    return false;
  const int type = value<int>(properties, "eventType", "it");
  const int most = mostEvents(summary.numElements);
  if (type == 0) {
    if (!has({"focalDepth", "steeringAngle", "numberFocusedBeamsTotal"})) return false;
    summary.numEvents = count(properties, "numberFocusedBeamsTotal", most);
  } else if (type == 1 || type == 2) {
    if (!has({type == 1 ? "planeAngleRange" : "steeringAngleRange"})) return false;
    if (type == 2 && !has({"virtualSourceDistance"})) return false;
    if (has({"numberApertures", "numberEventsPerAperture"})) {
      const int apertures = count(properties, "numberApertures", most);
      summary.numEvents = apertures * count(properties, "numberEventsPerAperture", most / apertures);
    } else if (has({"numberEvents"})) {
      summary.numEvents = count(properties, "numberEvents", most); // the form of older files
    } else {
      return false;
    }
  } else {
    return false;
  }
  for (const char* key : {"endDepth", "speedOfSound"})
    positive(properties, key, "it");
  summary.eventType = type;
  summary.pulseFrequency = positive(properties, "pulseFrequency", "it");
  summary.numTransmitting = count(properties, "maxTransmitAperture", summary.numElements);
  summary.numChannels = count(properties, "maxReceiveAperture", summary.numElements);
  summary.samplingFrequency = positive(properties, "receiveSamplingFrequency", "it");
  return true;
}

} // namespace

AcquisitionSummary summarizeAcquisition(const Properties& properties) {
  AcquisitionSummary summary;
  const Properties* transducer = properties.findSubProperties("transducer");
  if (!transducer) fail("it has no \"transducer\"");
  const std::string array = "the transducer";
  summary.numElements = value<int>(*transducer, "numberElements", array);
  if (summary.numElements < 2 || summary.numElements > kMostElements)
    fail(fmt::format("{} has {} elements, it must have 2 to {}", array, summary.numElements, kMostElements));
  summary.pitch = positive(*transducer, "pitch", array);
  const auto type = value<std::string>(*transducer, "type", array);
  if (type == "convex")
    summary.radius = positive(*transducer, "radiusCurvature", array);
  else if (type != "linear")
    fail(fmt::format("the type of {} is \"{}\", there are linear and convex", array, type));

  if (readParameters(properties, summary)) return summary;
  const auto events = properties.allSubProperties("events");
  if (events.empty()) fail("it has neither all parameters of a frame nor \"events\"");
  if (const int most = mostEvents(summary.numElements); events.size() > static_cast<std::size_t>(most))
    fail(fmt::format("it has {} events of {} elements, at most {} make a frame", events.size(), summary.numElements,
                     most));
  summary.numEvents = static_cast<int>(events.size());
  for (std::size_t i = 0; i < events.size(); ++i)
    summary.events.push_back(readEvent(*events[i], fmt::format("event {}", i), summary));
  if (const Properties* regions = properties.findSubProperties("beamformingRois"))
    if (const auto n = regions->allSubProperties("rois").size(); n != events.size())
      fail(fmt::format("it has {} regions for {} events", n, events.size()));
  return summary;
}

std::string describeArray(const AcquisitionSummary& summary) {
  const std::string form =
      summary.radius ? fmt::format("convex array (radius {:.6g} mm)", *summary.radius) : "linear array";
  return fmt::format("{} of {} elements, {:.6g} mm apart", form, summary.numElements, summary.pitch);
}

std::string describeEvents(const AcquisitionSummary& summary) {
  constexpr std::array waves = {"focused beam", "plane wave", "diverging wave"};
  return fmt::format("{} {}{} of {:.6g} MHz, {} element{} send{}; {} channels{} at {:.6g} MHz", summary.numEvents,
                     waves.at(static_cast<std::size_t>(summary.eventType)), summary.numEvents == 1 ? "" : "s",
                     summary.pulseFrequency * 1e-6, summary.numTransmitting, summary.numTransmitting == 1 ? "" : "s",
                     summary.numTransmitting == 1 ? "s" : "", summary.numChannels,
                     summary.samples ? fmt::format(" of {} samples", *summary.samples) : "",
                     summary.samplingFrequency * 1e-6);
}

} // namespace Kelvaris::CommandLine
