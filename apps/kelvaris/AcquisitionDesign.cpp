#include "kelvaris/AcquisitionDesign.h"

#include "kelvaris/AcquisitionSummary.h"

#include "US/FrameGeometryConvex.h"
#include "US/FrameGeometryConvexSteered.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/FrameGeometrySector.h"
#include "US/UltrasoundMetadata.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <stdexcept>

namespace Kelvaris::CommandLine {
namespace {

using Eigen::Vector2d;

constexpr int kMostElements = AcquisitionLimits::maxElements;
constexpr int kMostEvents = AcquisitionLimits::maxEvents;

struct Event {
  Wave wave;
  Vector2d origin;
  Vector2d fiducial; ///< focus, direction or virtual source
  Vector2d timeZero;
  int transmitFirst, transmitLast;
  int receiveFirst, receiveLast;
};

double degrees(double radians) {
  return 180.0 * radians / std::numbers::pi;
}

Vector2d direction(double angle) {
  return {std::sin(angle), std::cos(angle)};
}

template <typename... Args> void require(bool condition, fmt::format_string<Args...> text, Args&&... args) {
  if (!condition) throw std::invalid_argument(fmt::format(text, std::forward<Args>(args)...));
}

void requirePositive(double value, const char* what, const char* unit, double inUnits) {
  require(std::isfinite(value) && value > 0.0, "The {} is {} {}, it must be a number above 0", what, inUnits, unit);
}

/// Angle of the array's normal at a position along the array; 0 on a linear one.
double normalAngle(const AcquisitionDesign& design, double position) {
  return design.radius ? position / *design.radius : 0.0;
}

Vector2d pointOnArray(const AcquisitionDesign& design, double position) {
  if (!design.radius) return {position, 0.0};
  const double angle = normalAngle(design, position);
  return {*design.radius * std::sin(angle), *design.radius * std::cos(angle) - *design.radius};
}

double halfLength(const AcquisitionDesign& design) {
  return 0.5 * (design.numElements - 1) * design.pitch;
}

int transmitSize(const AcquisitionDesign& design) {
  return design.transmitAperture.value_or(design.numElements);
}
int receiveSize(const AcquisitionDesign& design) {
  return design.receiveAperture.value_or(design.numElements);
}

/// The `size` elements nearest to `position` as one run, ties to the lower indices.
std::pair<int, int> apertureAround(const std::vector<Vector2d>& elements, const Vector2d& position, int size) {
  std::vector<double> distances(elements.size());
  std::transform(elements.begin(), elements.end(), distances.begin(),
                 [&](const Vector2d& element) { return (element - position).norm(); });
  std::vector<double> sorted = distances;
  const auto nth = sorted.begin() + (size - 1);
  std::nth_element(sorted.begin(), nth, sorted.end());
  const auto found = std::find_if(distances.begin(), distances.end(), [&](double d) { return d <= *nth; });
  const auto first = static_cast<int>(found - distances.begin());
  return {first, first + size - 1};
}

/// The element that fires first: the farthest from a focus, the least advanced along a direction, the nearest to a
/// virtual source; the lowest index where several are equally good.
Vector2d firstFiring(const std::vector<Vector2d>& elements, const Event& event) {
  const auto lateness = [&](const Vector2d& element) {
    switch (event.wave) {
    case Wave::Focused:
      return -(element - event.fiducial).norm();
    case Wave::Plane:
      return element.dot(event.fiducial);
    default:
      return (element - event.fiducial).norm();
    }
  };
  return *std::min_element(elements.begin() + event.transmitFirst, elements.begin() + event.transmitLast + 1,
                           [&](const Vector2d& a, const Vector2d& b) { return lateness(a) < lateness(b); });
}

/// From the first firing until the wave reaches `point`.
double transmitTime(const Event& event, const Vector2d& point, double speedOfSound) {
  if (event.wave == Wave::Plane) return (point - event.timeZero).dot(event.fiducial) / speedOfSound;
  const double toFiducial = (event.timeZero - event.fiducial).norm(), fromFiducial = (point - event.fiducial).norm();
  if (event.wave != Wave::Focused) return (fromFiducial - toFiducial) / speedOfSound;
  const bool beyond = (event.fiducial - event.origin).dot(point - event.fiducial) > 0.0;
  return (beyond ? toFiducial + fromFiducial : toFiducial - fromFiducial) / speedOfSound;
}

/// Where the waves start: the origin, and what is added to the angles there.
struct Start {
  Vector2d origin;
  double angle;
};

std::vector<Start> starts(const AcquisitionDesign& design, const std::vector<Vector2d>& elements) {
  std::vector<Start> all;
  if (design.beams) {
    const int n = *design.beams;
    for (int i = 0; i < n; ++i) {
      const double position = n == 1 ? 0.0 : halfLength(design) * (2.0 * i / (n - 1) - 1.0);
      all.push_back({pointOnArray(design, position), normalAngle(design, position)});
    }
  } else if (design.apertures) {
    const int aperture = std::max(transmitSize(design), receiveSize(design));
    const double step =
        *design.apertures == 1 ? 0.0 : static_cast<double>(design.numElements - aperture) / (*design.apertures - 1);
    for (int i = 0; i < *design.apertures; ++i) {
      const auto first = static_cast<std::size_t>(std::lround(i * step));
      all.push_back({(elements[first] + elements[first + static_cast<std::size_t>(aperture) - 1]) * 0.5, 0.0});
    }
  } else if (!design.origins.empty()) {
    for (const double position : design.origins)
      all.push_back({pointOnArray(design, position), 0.0});
  } else {
    all.push_back({Vector2d::Zero(), 0.0});
  }
  return all;
}

std::vector<Event> makeEvents(const AcquisitionDesign& design) {
  const std::vector<Vector2d> elements = elementPositions(design);
  std::vector<Event> events;
  const auto add = [&](const Vector2d& origin, const Vector2d& fiducial, int transmitAperture) {
    Event event{design.wave, origin, fiducial, {}, 0, 0, 0, 0};
    std::tie(event.transmitFirst, event.transmitLast) = apertureAround(elements, origin, transmitAperture);
    std::tie(event.receiveFirst, event.receiveLast) = apertureAround(elements, origin, receiveSize(design));
    event.timeZero = firstFiring(elements, event);
    events.push_back(event);
  };

  if (design.wave == Wave::SingleElement) {
    if (design.firing.empty())
      for (const Vector2d& element : elements)
        add(element, element, 1);
    for (const int i : design.firing)
      add(elements[static_cast<std::size_t>(i)], elements[static_cast<std::size_t>(i)], 1);
    return events;
  }
  const std::vector<Start> origins = starts(design, elements);
  for (std::size_t i = 0; i < design.points.size(); ++i)
    add(origins[origins.size() == 1 ? 0 : i].origin, design.points[i], transmitSize(design));
  if (!design.points.empty()) return events;
  for (const Start& start : origins)
    for (const double angle : design.angles) {
      const Vector2d u = direction(start.angle + angle);
      Vector2d fiducial = u;
      if (design.wave == Wave::Focused) fiducial = start.origin + *design.distance * u;
      if (design.wave == Wave::Diverging) fiducial = start.origin - *design.distance * u;
      add(start.origin, fiducial, transmitSize(design));
    }
  return events;
}

/// The picture that the events make: its geometry, the region of each event, and the points from which the last echoes
/// come.
struct Frame {
  std::unique_ptr<US::FrameGeometry> geometry;
  std::vector<std::vector<Vector2d>> regions;
  std::vector<Vector2d> farPoints;
  bool isLines = false; ///< one region and one far point for each event, else the same for all
};

/// Scan lines, one a beam. They must coincide with the columns of a frame geometry.
Frame lineFrame(const AcquisitionDesign& design, const std::vector<Event>& events) {
  Frame frame;
  frame.isLines = true;
  const auto n = static_cast<double>(events.size());
  const auto u = [&](const Event& event) -> Vector2d { return (event.fiducial - event.origin).normalized(); };
  const Vector2d first = u(events[0]), last = u(events.back());
  const double firstAngle = std::atan2(first.x(), first.y()), lastAngle = std::atan2(last.x(), last.y());
  const double shift = (events.back().origin - events[0].origin).norm();

  double start = design.startDepth;
  if (design.radius) {
    auto convex = std::make_unique<US::FrameGeometryConvexSteered>();
    const double span =
        2.0 * std::asin(std::clamp(0.5 * shift / *design.radius, -1.0, 1.0)); // from the chord between the ends
    convex->setShortRadius(*design.radius);
    convex->setOpeningAngle(degrees(0.5 * span * n / (n - 1.0)));
    convex->setSteeringAngle(degrees(0.5 * (firstAngle + lastAngle)));
    frame.geometry = std::move(convex);
  } else if (shift > 0.0) {
    auto linear = std::make_unique<US::FrameGeometryLinear>();
    linear->setWidth(shift * n / (n - 1.0));
    linear->setSteeringAngle(degrees(firstAngle));
    frame.geometry = std::move(linear);
  } else {
    auto sector = std::make_unique<US::FrameGeometrySector>();
    sector->setOpeningAngle(degrees(0.5 * (lastAngle - firstAngle) * n / (n - 1.0)));
    sector->setShortRadius(0.0);
    sector->setBottomCurvature(1.0);
    frame.geometry = std::move(sector);
    start = std::max(start, 1e-3); // at the apex all lines are one point
  }
  frame.geometry->setDepth(design.endDepth * (design.radius || shift == 0.0 ? 1.0 : std::cos(firstAngle)));

  for (std::size_t i = 0; i < events.size(); ++i) {
    const Vector2d top = events[i].origin + start * u(events[i]);
    const Vector2d bottom = events[i].origin + design.endDepth * u(events[i]);
    frame.regions.push_back({top, bottom});
    frame.farPoints.push_back(bottom);
    const double column = (static_cast<double>(i) + 0.5) / n;
    for (const Vector2d& point : {top, bottom}) {
      const Vector2d normalized = frame.geometry->convertPoint(point, US::FrameGeometry::PhysicalToNormalized);
      require(
          std::abs(normalized.x() - column) < 1e-6,
          "Focused beams make a picture only if they are its columns: parallel and evenly spaced about the array's "
          "centre, at even angles about the depth axis from that centre, or at one angle to the normals of a convex "
          "array; beam {} from ({:.4g}, {:.4g}) mm at {:.4g} degrees is not",
          i, events[i].origin.x(), events[i].origin.y(), degrees(std::atan2(u(events[i]).x(), u(events[i]).y())));
    }
  }
  return frame;
}

/// Points of the frame along a line across, at the normalised depth `v`.
std::vector<Vector2d> across(const US::FrameGeometry& geometry, double v, int count) {
  std::vector<Vector2d> points;
  for (int i = 0; i < count; ++i)
    points.push_back(
        geometry.convertPoint({static_cast<double>(i) / (count - 1), v}, US::FrameGeometry::NormalizedToPhysical));
  return points;
}

/// A fan for all events, from the arc at the start depth on; without what the arc leaves behind the array.
Frame sectorFrame(const AcquisitionDesign& design, std::size_t numEvents) {
  auto sector = std::make_unique<US::FrameGeometrySector>();
  sector->setOpeningAngle(degrees(*design.sector));
  sector->setShortRadius(design.apex);
  sector->setDepth(design.endDepth);
  sector->setBottomCurvature(1.0);
  const int columns = 2 * design.numElements - 1;
  const Geometry::AlignedBox bounds = sector->bounds();
  const double left = bounds.min().x(), right = bounds.max().x(), bottom = bounds.max().y();
  std::vector<Vector2d> region = across(*sector, design.startDepth / design.endDepth, columns);
  for (Vector2d& point : region)
    point.y() = std::max(point.y(), 0.0);
  const double top = region.back().y();
  region.erase(std::unique(region.begin(), region.end()), region.end()); // at the apex all lines are one point
  for (const Vector2d& corner : {Vector2d(right, top), {right, bottom}, {left, bottom}, {left, top}})
    region.push_back(corner);

  Frame frame;
  frame.farPoints = across(*sector, 1.0, columns);
  frame.regions.assign(numEvents, region);
  frame.geometry = std::move(sector);
  return frame;
}

/// One area for all events.
Frame areaFrame(const AcquisitionDesign& design, std::size_t numEvents) {
  if (design.sector) return sectorFrame(design, numEvents);
  Frame frame;
  Vector2d low, high;
  if (design.radius) {
    auto convex = std::make_unique<US::FrameGeometryConvex>();
    convex->setShortRadius(*design.radius);
    convex->setOpeningAngle(degrees(halfLength(design) / *design.radius));
    convex->setDepth(design.endDepth);
    const Geometry::AlignedBox bounds = convex->bounds();
    low = bounds.min();
    high = bounds.max();
    frame.farPoints = across(*convex, 1.0, 2 * design.numElements - 1);
    frame.geometry = std::move(convex);
  } else {
    const auto [left, right] = design.x.value_or(std::pair(-halfLength(design), halfLength(design)));
    low = {left, design.startDepth};
    high = {right, design.endDepth};
    auto linear = std::make_unique<US::FrameGeometryLinear>();
    linear->setWidth(2.0 * std::max(std::abs(left), std::abs(right)));
    linear->setDepth(design.endDepth);
    frame.geometry = std::move(linear);
    frame.farPoints = {low, {high.x(), low.y()}, high, {low.x(), high.y()}};
  }
  frame.regions.assign(numEvents, {low, {low.x(), high.y()}, high, {high.x(), low.y()}});
  return frame;
}

/// The frame's parameters in the model's stored form, where they make the same events.
std::optional<Properties> parameters(const AcquisitionDesign& design) {
  if (design.startTime != 0.0 || design.pulseDelay != 0.0 || design.samples || design.startDepth != 0.0 || design.x ||
      design.sector || design.timeZero != TimeZero::FirstElement || design.channelOrder != ChannelOrder::Wrapped ||
      design.wave == Wave::SingleElement || !design.points.empty() || !design.origins.empty())
    return std::nullopt;

  Properties p;
  p.setParam("eventType", static_cast<int>(design.wave));
  p.setParam("endDepth", design.endDepth);
  p.setParam("pulseFrequency", design.pulseFrequency);
  p.setParam("pulseLength", design.pulseLength);
  p.setParam("speedOfSound", design.speedOfSound);
  p.setParam("maxTransmitAperture", transmitSize(design));
  p.setParam("maxReceiveAperture", receiveSize(design));
  p.setParam("receiveSamplingFrequency", design.samplingFrequency);
  if (design.wave == Wave::Focused) {
    if (!design.beams || *design.beams < 2 || design.angles.size() != 1) return std::nullopt;
    p.setParam("focalDepth", *design.distance);
    p.setParam("steeringAngle", design.angles[0]);
    p.setParam("numberFocusedBeamsTotal", *design.beams);
    return p;
  }

  // The model spreads angles evenly and symmetrically. It places a single aperture at the array's beginning, and the
  // origin of an aperture of a convex array on the chord.
  const auto n = design.angles.size();
  const bool whole = std::max(transmitSize(design), receiveSize(design)) == design.numElements;
  const bool centred = design.apertures || (whole && !design.radius);
  if (!centred || (n == 1 && (design.angles[0] != 0.0 || design.wave == Wave::Diverging))) return std::nullopt;
  const double range = design.angles.back() - design.angles.front();
  if (range < 0.0) return std::nullopt;
  for (std::size_t i = 0; i < n; ++i) {
    const double angle = static_cast<double>(i) * (range / std::max(static_cast<double>(n) - 1.0, 1.0)) - range * 0.5;
    if (std::abs(angle - design.angles[i]) > 1e-12) return std::nullopt;
  }
  if (design.wave == Wave::Diverging) p.setParam("virtualSourceDistance", *design.distance);
  p.setParam(design.wave == Wave::Plane ? "planeAngleRange" : "steeringAngleRange", range);
  p.setParam("numberApertures", design.apertures.value_or(1));
  p.setParam("numberEventsPerAperture", static_cast<int>(n));
  return p;
}

Eigen::Vector3d inSpace(const Vector2d& point) {
  return {point.x(), point.y(), 0.0};
}

int channelOf(const AcquisitionDesign& design, const Event& event, int element) {
  switch (design.channelOrder) {
  case ChannelOrder::Element:
    return element;
  case ChannelOrder::Aperture:
    return element - event.receiveFirst;
  default:
    return element % receiveSize(design);
  }
}

void writeEvents(const AcquisitionDesign& design, const std::vector<Event>& events, const Frame& frame,
                 Properties& properties) {
  const std::vector<Vector2d> elements = elementPositions(design);
  double lastEcho = 0.0;
  for (std::size_t i = 0; i < frame.farPoints.size(); ++i) {
    const Vector2d& point = frame.farPoints[i];
    double farthest = 0.0;
    for (const Vector2d& element : elements)
      farthest = std::max(farthest, (point - element).norm());
    const auto add = [&](const Event& event) {
      lastEcho = std::max(lastEcho, transmitTime(event, point, design.speedOfSound) + farthest / design.speedOfSound);
    };
    if (frame.isLines)
      add(events[i]);
    else
      std::for_each(events.begin(), events.end(), add);
  }

  for (const Event& event : events) {
    double startTime = design.startTime - design.pulseDelay;
    if (design.timeZero == TimeZero::Origin) startTime += transmitTime(event, event.origin, design.speedOfSound);
    const double endTime = design.samples ? startTime + *design.samples / design.samplingFrequency : lastEcho;
    require(endTime > startTime, "The recording starts at {} us, after the last echo from the picture at {} us",
            startTime * 1e6, endTime * 1e6);

    Properties& stored = properties.addSubProperties("events");
    Properties& transmit = stored.subProperties("transmit");
    transmit.setParam("pulseFrequency", design.pulseFrequency);
    transmit.setParam("pulseLength", design.pulseLength);
    transmit.setParam("speedOfSound", design.speedOfSound);
    transmit.setParam("apertureFirst", event.transmitFirst);
    transmit.setParam("apertureLast", event.transmitLast);
    // A single element is the virtual source of a diverging wave.
    transmit.setParam("eventType", std::min(static_cast<int>(event.wave), static_cast<int>(Wave::Diverging)));
    transmit.setParam("timeZeroPoint", inSpace(event.timeZero));
    transmit.setParam("waveFiducial", inSpace(event.fiducial));
    transmit.setParam("waveStart", inSpace(event.origin));

    std::vector<int> channels;
    for (int element = event.receiveFirst; element <= event.receiveLast; ++element)
      channels.push_back(channelOf(design, event, element));
    Properties& receive = stored.subProperties("receive");
    receive.setParam("apertureFirst", event.receiveFirst);
    receive.setParam("apertureLast", event.receiveLast);
    receive.setParam("samplingFrequency", design.samplingFrequency);
    receive.setParam("startTime", startTime);
    receive.setParam("endTime", endTime);
    receive.setParam("elementToChannelMapping", channels);
  }
}

} // namespace

std::vector<Vector2d> elementPositions(const AcquisitionDesign& design) {
  std::vector<Vector2d> elements;
  const int n = design.numElements;
  for (int i = 0; i < n; ++i) {
    if (design.radius) {
      const double step = design.pitch / *design.radius, angle = i * step + (n - 1) * -step * 0.5;
      elements.emplace_back(*design.radius * std::sin(angle), *design.radius * std::cos(angle) - *design.radius);
    } else {
      elements.emplace_back(design.pitch * ((1 - n) * 0.5) + i * design.pitch, 0.0);
    }
  }
  return elements;
}

void AcquisitionDesign::check() const {
  require(numElements >= 2 && numElements <= kMostElements, "The array has {} elements, it must have 2 to {}",
          numElements, kMostElements);
  requirePositive(pitch, "pitch", "mm", pitch);
  if (radius) {
    requirePositive(*radius, "radius of curvature", "mm", *radius);
    require(halfLength(*this) < 0.5 * std::numbers::pi * *radius,
            "An array of {} mm bent to a radius of {} mm is more than a half circle", 2.0 * halfLength(*this), *radius);
  }
  requirePositive(speedOfSound, "speed of sound", "m/s", speedOfSound * 1e-3);
  requirePositive(pulseFrequency, "pulse frequency", "MHz", pulseFrequency * 1e-6);
  requirePositive(pulseLength, "pulse length", "cycles", pulseLength);
  requirePositive(samplingFrequency, "sampling frequency", "MHz", samplingFrequency * 1e-6);
  require(std::isfinite(startTime) && std::isfinite(pulseDelay),
          "The start time is {} us and the pulse delay {} us, they must be numbers", startTime * 1e6, pulseDelay * 1e6);
  require(!samples || *samples >= 2, "There are {} samples, it takes at least 2", samples.value_or(0));

  for (const auto& [size, what] : {std::pair{transmitAperture, "transmit"}, std::pair{receiveAperture, "receive"}})
    require(!size || (*size >= 1 && *size <= numElements),
            "The {} aperture has {} elements, it must have 1 to the array's {}", what, size.value_or(0), numElements);

  const bool single = wave == Wave::SingleElement;
  require(!single || (!transmitAperture && origins.empty() && !apertures && !beams),
          "Elements that fire one by one have no transmit aperture, origins, apertures or beams");
  require(single || firing.empty(), "Only waves of single elements have firing elements");
  for (const int element : firing)
    require(element >= 0 && element < numElements, "Element {} fires, but the elements are 0 to {}", element,
            numElements - 1);
  require((origins.empty() ? 0 : 1) + (apertures ? 1 : 0) + (beams ? 1 : 0) <= 1,
          "Origins, apertures and beams say the same thing, give only one of them");
  for (const double position : origins)
    require(std::abs(position) <= halfLength(*this) * (1.0 + 1e-9),
            "An origin lies {} mm along the array, which reaches from {} to {} mm", position, -halfLength(*this),
            halfLength(*this));
  for (const auto& [count, what] : {std::pair{apertures, "apertures"}, std::pair{beams, "beams"}})
    require(!count || (*count >= 1 && *count <= kMostEvents), "There are {} {}, it must be 1 to {}", count.value_or(0),
            what, kMostEvents);

  require(!angles.empty(), "There are no angles");
  for (const double angle : angles)
    require(std::abs(angle) < 0.5 * std::numbers::pi, "An angle is {} degrees, it must lie between -90 and 90",
            degrees(angle));
  if (wave == Wave::Plane || single) {
    require(points.empty() && !distance, "{} have neither a focus nor a virtual source to give",
            single ? "Elements that fire one by one" : "Plane waves");
  } else {
    const bool focused = wave == Wave::Focused;
    const char* what = focused ? "focus" : "virtual source";
    require(points.empty() == distance.has_value(), "Give either the distance of the {} or its positions", what);
    if (distance) requirePositive(*distance, focused ? "focal distance" : "source distance", "mm", *distance);
    require(points.empty() || origins.size() <= 1 || origins.size() == points.size(),
            "There are {} origins for {} positions, it takes one or as many", origins.size(), points.size());
    require(points.empty() || (!apertures && !beams), "Positions go with origins, not with apertures or beams");
    for (const Vector2d& point : points)
      require(point.allFinite() && (focused ? point.y() > 0.0 : point.y() <= 0.0),
              "A {} lies at ({}, {}) mm, it must lie {} the array", what, point.x(), point.y(),
              focused ? "in front of" : "behind");
  }

  std::size_t numEvents = angles.size() * std::max<std::size_t>(1, origins.size());
  if (apertures || beams) numEvents = angles.size() * static_cast<std::size_t>(apertures ? *apertures : *beams);
  if (!points.empty()) numEvents = points.size();
  if (single) numEvents = firing.empty() ? static_cast<std::size_t>(numElements) : firing.size();
  const int most = std::min(kMostEvents, AcquisitionLimits::maxEventElements / numElements);
  require(numEvents <= static_cast<std::size_t>(most), "There are {} events of {} elements, at most {} make a frame",
          numEvents, numElements, most);

  requirePositive(endDepth, "depth", "mm", endDepth);
  require(startDepth >= 0.0 && startDepth < endDepth,
          "The picture reaches from {} to {} mm, it must start at 0 or below "
          "and end deeper",
          startDepth, endDepth);
  if (x) {
    require(std::isfinite(x->first) && std::isfinite(x->second) && x->first < x->second,
            "The picture reaches from x = {} to {} mm, the first must be the smaller number", x->first, x->second);
    require(!radius && wave != Wave::Focused, "The width of a picture of {} follows from the array",
            radius ? "a convex array" : "focused beams");
  }
  if (sector) {
    require(*sector > 0.0 && *sector < 0.5 * std::numbers::pi,
            "The sector reaches {} degrees to either side, it must be above 0 and below 90", degrees(*sector));
    require(!x, "The width of a sector follows from its angle and depth, it takes no x");
    require(!radius && wave != Wave::Focused, "The frame of {} follows from the array, it takes no sector",
            radius ? "a convex array" : "focused beams");
  }
  require(std::isfinite(apex) && apex >= 0.0 && (apex == 0.0 || sector),
          "The apex lies {} mm behind the array, it must be 0 or more and goes with a sector", apex);
  require(!radius || wave == Wave::Focused || startDepth == 0.0,
          "The picture of a convex array starts at its face, not "
          "at {} mm",
          startDepth);
}

Properties AcquisitionDesign::toProperties() const {
  check();
  Properties properties;
  if (const auto compact = parameters(*this)) properties = *compact;
  Properties& transducer = properties.subProperties("transducer");
  transducer.setParam("numberElements", numElements);
  transducer.setParam("pitch", pitch);
  transducer.setParam("type", radius ? "convex" : "linear");
  if (radius) transducer.setParam("radiusCurvature", *radius);
  if (properties.hasParam("eventType")) return properties;

  const std::vector<Event> events = makeEvents(*this);
  const bool lines = wave == Wave::Focused && events.size() > 1;
  const Frame frame = lines ? lineFrame(*this, events) : areaFrame(*this, events.size());
  writeEvents(*this, events, frame, properties);
  Properties& rois = properties.subProperties("beamformingRois");
  for (const auto& region : frame.regions)
    rois.addSubProperties("rois").setParam("points", region);
  frame.geometry->configuration(&properties.subProperties("frameGeometry"));

  US::UltrasoundMetadata metadata;
  metadata.scanMode = 6;
  metadata.persistence = 0;
  metadata.numColumns = lines ? static_cast<int>(events.size()) : 2 * numElements - 1;
  metadata.numRows = static_cast<int>(
      std::min(std::ceil(endDepth / (speedOfSound / pulseFrequency) * 3.0), 1.0 * std::numeric_limits<int>::max()));
  metadata.depthEnd = endDepth;
  metadata.focalDepth = wave == Wave::Focused ? (events[0].fiducial - events[0].origin).norm() : 0.0;
  metadata.pulseFrequency = pulseFrequency;
  metadata.speedOfSound = speedOfSound;
  metadata.configuration(&properties.subProperties("metadata"));
  return properties;
}

} // namespace Kelvaris::CommandLine
