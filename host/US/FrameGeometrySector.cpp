#include "US/FrameGeometrySector.h"

#include "US/FanMath.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

namespace Kelvaris::US {

std::vector<FrameGeometry::Value> FrameGeometrySector::values() const {
  return {{.key = "openingAngle", .value = m_openingAngle},
          {.key = "shortRadius", .value = m_shortRadius},
          {.key = "longRadius", .value = longRadius()},
          {.key = "bottomCurvature", .value = m_bottomCurvature, .fallback = 1.0, .required = false}};
}

void FrameGeometrySector::setValues(const std::vector<double>& values) {
  m_openingAngle = values[0];
  m_shortRadius = values[1];
  m_bottomCurvature = values[3];
}

std::string FrameGeometrySector::contradiction(double depth, const std::vector<double>& values) const {
  if (!(std::abs(values[2] - values[1] - depth) > 1e-6)) return {};
  return fmt::format("A sector's depth must be its longRadius less its shortRadius, but {} was given for {} - {}",
                     depth, values[2], values[1]);
}

double FrameGeometrySector::lineLength(double t) const {
  const double flatness = 1.0 - m_bottomCurvature;
  if (flatness == 0.0) return depth();
  const double cosine = std::cos(t);
  if (!(cosine > 0.0)) return std::numeric_limits<double>::quiet_NaN();
  const double s = std::sin(0.5 * t);
  return depth() + 2.0 * flatness * longRadius() * s * s / cosine;
}

Eigen::Vector2d FrameGeometrySector::onLine(double t, double fromTop) const {
  return FanMath::onArc(m_shortRadius, t) + fromTop * Eigen::Vector2d(std::sin(t), std::cos(t));
}

Eigen::Vector2d FrameGeometrySector::toPhysical(double u, double v) const {
  const double t = (2.0 * u - 1.0) * FanMath::radians(m_openingAngle);
  return onLine(t, v * lineLength(t));
}

Eigen::Vector2d FrameGeometrySector::toNormalized(double x, double y) const {
  const double t = std::atan2(x, y + m_shortRadius);
  return {0.5 + 0.5 * t / FanMath::radians(m_openingAngle), FanMath::beyondArc(m_shortRadius, x, y) / lineLength(t)};
}

void FrameGeometrySector::scale(const Eigen::Vector2d& factors) {
  setDepth(depth() * factors.y());
  m_shortRadius *= factors.y();
}

FrameGeometry::Shader FrameGeometrySector::shader() const {
  return {std::string(FanMath::kShaderText) + R"(
vec2 @ToPhysical(vec2 uv) {
  vec2 turn = @Turn((2.0 * uv.x - 1.0) * @Opening);
  if (@Flatness != 0.0 && turn.y >= 1.0)
    return @Undefined();
  float l = uv.y * (@Depth + @Flatness * turn.y / (1.0 - turn.y));
  return vec2((@Radius + l) * turn.x, l - (@Radius + l) * turn.y);
}
vec2 @ToNormalized(vec2 p) {
  vec2 fromApex = vec2(p.x, p.y + @Radius);
  if (@Flatness != 0.0 && fromApex.y <= 0.0)
    return @Undefined();
  float r = length(fromApex);
  // (1 - cos t) / cos t without the difference.
  float line = @Depth + @Flatness * p.x * p.x / ((r + fromApex.y) * fromApex.y);
  return vec2(0.5 + 0.5 * @Angle(fromApex) / @Opening, @Power(p, @Radius) / (r + @Radius) / line);
}
)",
          {{"Opening", FanMath::radians(m_openingAngle)},
           {"Radius", m_shortRadius},
           {"Depth", depth()},
           {"Flatness", (1.0 - m_bottomCurvature) * longRadius()}}};
}

Geometry::AlignedBox FrameGeometrySector::bounds() const {
  Geometry::AlignedBox box;
  const double opening = std::abs(FanMath::radians(m_openingAngle));
  std::vector<double> angles = FanMath::extremeAngles(-opening, opening);
  // The bottom has x = L (c sin t + (1 - c) tan t), with an extreme where cos^3 t = (c - 1) / c.
  const double extreme = std::acos(std::cbrt((m_bottomCurvature - 1.0) / m_bottomCurvature));
  if (extreme < opening) angles.insert(angles.end(), {extreme, -extreme});
  for (const double t : angles) {
    box.extend(onLine(t, 0.0));
    box.extend(onLine(t, lineLength(t)));
  }
  return box;
}

} // namespace Kelvaris::US
