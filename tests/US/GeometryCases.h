#pragma once

#include "US/FrameGeometryConvex.h"
#include "US/FrameGeometryConvexSteered.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometrySector.h"

#include <fmt/format.h>

#include <cmath>
#include <numbers>

namespace Kelvaris::US::Tests {

/// A geometry, and the position of (u, v) in it by the plain formula.
struct GeometryCase {
  std::string name;
  std::shared_ptr<FrameGeometry> geometry;
  std::function<Eigen::Vector2d(double u, double v)> position;
};

inline void PrintTo(const GeometryCase& c, std::ostream* stream) {
  *stream << c.name;
}

inline double rad(double degrees) {
  return degrees * std::numbers::pi / 180.0;
}

inline GeometryCase linearCase(double width, double steering, double depth) {
  auto geometry = std::make_shared<FrameGeometryLinear>();
  geometry->setWidth(width);
  geometry->setSteeringAngle(steering);
  geometry->setDepth(depth);
  return {fmt::format("linear {} mm steered {} depth {}", width, steering, depth), geometry, [=](double u, double v) {
            return Eigen::Vector2d((u - 0.5) * width + v * depth * std::tan(rad(steering)), v * depth);
          }};
}

inline GeometryCase convexCase(double opening, double radius, double depth) {
  auto geometry = std::make_shared<FrameGeometryConvex>();
  geometry->setOpeningAngle(opening);
  geometry->setShortRadius(radius);
  geometry->setDepth(depth);
  return {fmt::format("convex {} radius {} depth {}", opening, radius, depth), geometry, [=](double u, double v) {
            const double t = (2 * u - 1) * rad(opening);
            const double r = radius + v * depth;
            return Eigen::Vector2d(r * std::sin(t), r * std::cos(t) - radius);
          }};
}

inline GeometryCase steeredCase(double opening, double radius, double steering, double depth) {
  auto geometry = std::make_shared<FrameGeometryConvexSteered>();
  geometry->setOpeningAngle(opening);
  geometry->setShortRadius(radius);
  geometry->setSteeringAngle(steering);
  geometry->setDepth(depth);
  return {fmt::format("convex {} radius {} steered {} depth {}", opening, radius, steering, depth), geometry,
          [=](double u, double v) {
            const double t = (2 * u - 1) * rad(opening);
            const double s = t + rad(steering);
            return Eigen::Vector2d(radius * std::sin(t) + v * depth * std::sin(s),
                                   radius * std::cos(t) - radius + v * depth * std::cos(s));
          }};
}

inline GeometryCase sectorCase(double opening, double shortRadius, double longRadius, double curvature) {
  auto geometry = std::make_shared<FrameGeometrySector>();
  geometry->setOpeningAngle(opening);
  geometry->setShortRadius(shortRadius);
  geometry->setLongRadius(longRadius);
  geometry->setBottomCurvature(curvature);
  return {fmt::format("sector {} radii {} {} bottom {}", opening, shortRadius, longRadius, curvature), geometry,
          [=](double u, double v) {
            const double t = (2 * u - 1) * rad(opening);
            const double bottom = curvature * longRadius + (1 - curvature) * longRadius / std::cos(t);
            const double r = shortRadius + v * (bottom - shortRadius);
            return Eigen::Vector2d(r * std::sin(t), r * std::cos(t) - shortRadius);
          }};
}

/// Ordinary frames, narrow and wide ones, flat ones of a large radius.
inline std::vector<GeometryCase> geometryCases() {
  return {linearCase(38.1, 0, 40),       linearCase(38.1, 15, 40),      linearCase(10, -30, 100),
          convexCase(28.5, 60, 120),     convexCase(100, 10, 30),       convexCase(149, 5, 20),
          convexCase(1, 1000, 40),       convexCase(45, 0, 100),        steeredCase(28.5, 60, 0, 120),
          steeredCase(15, 60, -20, 120), steeredCase(80, 10, -35, 50),  steeredCase(1.1, 1000, 10, 40),
          sectorCase(15, 71.1, 91.1, 1), sectorCase(1.1, 990, 1040, 1), sectorCase(45, 0, 150, 1),
          sectorCase(45, 0, 150, 0),     sectorCase(60, 20, 100, 0.3),  sectorCase(15, 71.1, 91.1, 0.75),
          sectorCase(55, 15, 80, 1.4),   sectorCase(110, 15, 80, 1)};
}

/// A point that has no other in a geometry.
struct UndefinedPoint {
  GeometryCase geometry;
  FrameGeometry::Direction direction;
  Eigen::Vector2d point;
};

inline std::vector<UndefinedPoint> undefinedPoints() {
  constexpr auto toPhysical = FrameGeometry::NormalizedToPhysical;
  constexpr auto toNormalized = FrameGeometry::PhysicalToNormalized;
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  return {{linearCase(38, 0, 40), toPhysical, {nan, 0.5}},
          {linearCase(38, 0, 40), toPhysical, {0.5, infinity}},
          {linearCase(38, 0, 40), toNormalized, {0.5, nan}},
          {linearCase(0, 0, 40), toNormalized, {0, 1}},
          {linearCase(38, 0, 0), toNormalized, {0, 1}},
          {convexCase(0, 60, 40), toNormalized, {0, 1}},
          {convexCase(infinity, 0, 40), toPhysical, {0.3, 0.5}},
          {sectorCase(15, nan, 40, 1), toPhysical, {0.3, 0.5}},
          {sectorCase(0, 0, 0, 1), toNormalized, {0, 0}},
          {steeredCase(0, 0, 0, 0), toNormalized, {0, 0}},
          // A line of sight above the level of the flat bottom, and a point above the apex.
          {sectorCase(100, 10, 30, 0), toPhysical, {0, 0.5}},
          {sectorCase(100, 10, 30, 0), toNormalized, {1, -20}},
          // No line goes through the apex, or all go along the array.
          {steeredCase(30, 60, 60, 50), toNormalized, {0, -60}},
          {steeredCase(30, 60, 120, 50), toNormalized, {0, 10}}};
}

} // namespace Kelvaris::US::Tests
