#include "model/FrameAcquisition.h"

#include "US/FrameGeometryConvex.h"
#include "US/FrameGeometryConvexSteered.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/FrameGeometrySector.h"
#include "US/UltrasoundMetadata.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace Kelvaris::US {
namespace {

using Eigen::Vector2d;

constexpr double kPi = std::numbers::pi;
constexpr double kStraightRadius = 1000.0; // mm; a sector of a larger radius is as good as straight

double degrees(double radians) {
  return 180.0 * radians / kPi;
}

Vector2d inPlane(const Eigen::Vector3d& v) {
  return v.head<2>();
}

FrameGeometryLinear focusedLinear(const std::vector<PulseEchoEvent>& events, const FrameParameters& parameters) {
  Vector2d leftmost = Vector2d::Zero(), rightmost = Vector2d::Zero();
  for (std::size_t i = 0; i < events.size(); ++i) {
    const Vector2d start = inPlane(events[i].transmit.waveStart);
    if (i == 0 || start.x() < leftmost.x()) leftmost = start;
    if (i == 0 || start.x() > rightmost.x()) rightmost = start;
  }
  const auto n = static_cast<double>(events.size());
  double spacing = (rightmost - leftmost).norm();
  if (n - 1 >= 1) spacing /= n - 1;
  FrameGeometryLinear geometry(CoordinateSystem::Image);
  geometry.setWidth(std::max(1.0, n * spacing)); // half a spacing beyond the outer beams on either side
  geometry.setSteeringAngle(degrees(parameters.focused.steeringAngle));
  geometry.setDepth(std::cos(parameters.focused.steeringAngle) * parameters.endDepth);
  return geometry;
}

FrameGeometryConvexSteered focusedConvex(const std::vector<PulseEchoEvent>& events, const FrameParameters& parameters,
                                         double radius) {
  FrameGeometryConvexSteered geometry(CoordinateSystem::Image);
  geometry.setShortRadius(radius);
  const Vector2d apex = geometry.apex();
  double least = 2.0 * kPi, greatest = -2.0 * kPi;
  for (const PulseEchoEvent& event : events) {
    const Vector2d v = (inPlane(event.transmit.waveStart) - apex).normalized();
    const double angle = std::atan2(v.x(), v.y());
    least = std::min(least, angle);
    greatest = std::max(greatest, angle);
  }
  const auto n = static_cast<double>(events.size());
  double span = greatest - least;
  if (n - 1 >= 1) span /= n - 1;
  geometry.setOpeningAngle(degrees(n * span * 0.5));
  geometry.setSteeringAngle(degrees(parameters.focused.steeringAngle));
  geometry.setDepth(parameters.endDepth);
  return geometry;
}

/// Geometry of plane or diverging waves whose angles span `range` (rad).
std::unique_ptr<FrameGeometry> ultrafastGeometry(const Transducer& transducer, double range, double endDepth) {
  std::unique_ptr<FrameGeometry> geometry;
  const double width = (transducer.numElements() - 1) * transducer.pitch();
  if (transducer.isConvex()) {
    const double radius = *transducer.radiusCurvature();
    auto convex = std::make_unique<FrameGeometryConvex>(CoordinateSystem::Image);
    convex->setOpeningAngle(degrees(0.5 * (transducer.numElements() - 1) * transducer.pitch() / radius));
    convex->setShortRadius(radius);
    geometry = std::move(convex);
  } else if (const double radius = 0.5 * width / std::tan(0.5 * range); radius > kStraightRadius) {
    auto linear = std::make_unique<FrameGeometryLinear>(CoordinateSystem::Image);
    linear->setWidth(width);
    geometry = std::move(linear);
  } else {
    auto sector = std::make_unique<FrameGeometrySector>(CoordinateSystem::Image);
    sector->setOpeningAngle(degrees(0.5 * range));
    sector->setShortRadius(radius);
    sector->setLongRadius(radius + endDepth);
    sector->setBottomCurvature(1.0);
    geometry = std::move(sector);
  }
  geometry->setDepth(endDepth);
  return geometry;
}

/// Regions between the outer elements A and B that both transmit and receive: A, A + reach(A), B + reach(B), B.
template <typename Reach>
std::unique_ptr<BeamformingRois> ultrafastRois(const std::vector<PulseEchoEvent>& events,
                                               const std::vector<Eigen::Vector3d>& elements, Reach reach) {
  auto rois = std::make_unique<BeamformingRois>();
  for (const PulseEchoEvent& event : events) {
    const int first = std::max(event.transmit.apertureFirst, event.receive.apertureFirst);
    const int last = std::min(event.transmit.apertureLast, event.receive.apertureLast);
    const Vector2d a = inPlane(elements[static_cast<std::size_t>(first)]);
    const Vector2d b = inPlane(elements[static_cast<std::size_t>(last)]);
    const Vector2d fiducial = inPlane(event.transmit.waveFiducial);
    rois->add(Geometry::Polygon2D(std::vector<Vector2d>{a, a + reach(fiducial, a), b + reach(fiducial, b), b}));
  }
  return rois;
}

} // namespace

void FrameAcquisition::fillUltrasoundMetadata(int numColumns, double focalDepth) {
  const FrameParameters& parameters = m_frameParameters.value();
  UltrasoundMetadata& metadata = *m_ultrasoundMetadata;
  metadata.scanMode = 6;
  metadata.persistence = 0;
  metadata.numColumns = numColumns;
  metadata.depthStart = 0.0;
  metadata.depthEnd = parameters.endDepth;
  metadata.focalDepth = focalDepth;
  metadata.pulseFrequency = parameters.pulseFrequency;
  metadata.speedOfSound = parameters.speedOfSound;
  const double wavelength = parameters.speedOfSound / parameters.pulseFrequency;
  metadata.numRows = static_cast<int>(std::ceil((metadata.depthEnd - metadata.depthStart) / wavelength * 3.0));
}

void FrameAcquisition::calculateFocusedMetadata() {
  const FrameParameters& parameters = m_frameParameters.value();
  m_rois = std::make_unique<BeamformingRois>();
  for (const PulseEchoEvent& event : m_events) {
    const Vector2d start = inPlane(event.transmit.waveStart);
    const Vector2d direction = (inPlane(event.transmit.waveFiducial) - start).normalized();
    m_rois->add(Geometry::Polygon2D(std::vector<Vector2d>{start, start + parameters.endDepth * direction}));
  }
  fillUltrasoundMetadata(parameters.focused.numberFocusedBeamsTotal, parameters.focused.focalDepth);
  if (m_transducer.isConvex())
    m_frameGeometry->setFrameGeometry(focusedConvex(m_events, parameters, *m_transducer.radiusCurvature()));
  else
    m_frameGeometry->setFrameGeometry(focusedLinear(m_events, parameters));
}

void FrameAcquisition::calculatePlaneWaveMetadata() {
  const FrameParameters& parameters = m_frameParameters.value();
  const auto geometry = ultrafastGeometry(m_transducer, parameters.planeWave.planeAngleRange, parameters.endDepth);
  const double height = geometry->bounds().height();
  m_rois = ultrafastRois(m_events, m_transducer.elementPositions(),
                         [&](const Vector2d& direction, const Vector2d& /*element*/) -> Vector2d {
                           const Vector2d u = direction.normalized();
                           return (height / u.y()) * u;
                         });
  fillUltrasoundMetadata(2 * m_transducer.numElements() - 1, 0.0);
  m_frameGeometry->setFrameGeometry(*geometry);
}

void FrameAcquisition::calculateDivergingWaveMetadata() {
  const FrameParameters& parameters = m_frameParameters.value();
  const auto geometry =
      ultrafastGeometry(m_transducer, parameters.divergingWave.steeringAngleRange, parameters.endDepth);
  const double height = geometry->bounds().height();
  m_rois = ultrafastRois(m_events, m_transducer.elementPositions(),
                         [&](const Vector2d& virtualSource, const Vector2d& element) -> Vector2d {
                           const Vector2d u = (element - virtualSource).normalized();
                           return (height / u.y()) * u;
                         });
  fillUltrasoundMetadata(2 * m_transducer.numElements() - 1, 0.0);
  m_frameGeometry->setFrameGeometry(*geometry);
}

} // namespace Kelvaris::US
