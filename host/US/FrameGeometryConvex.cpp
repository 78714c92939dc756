#include "US/FrameGeometryConvex.h"

#include "US/FanMath.h"

#include <cmath>

namespace Kelvaris::US {

std::vector<FrameGeometry::Value> FrameGeometryConvex::values() const {
  return {{.key = "openingAngle", .value = m_openingAngle}, {.key = "shortRadius", .value = m_shortRadius}};
}

void FrameGeometryConvex::setValues(const std::vector<double>& values) {
  m_openingAngle = values[0];
  m_shortRadius = values[1];
}

Eigen::Vector2d FrameGeometryConvex::toPhysical(double u, double v) const {
  const double t = (2.0 * u - 1.0) * FanMath::radians(m_openingAngle);
  return FanMath::onArc(m_shortRadius, t) + v * depth() * Eigen::Vector2d(std::sin(t), std::cos(t));
}

Eigen::Vector2d FrameGeometryConvex::toNormalized(double x, double y) const {
  const double t = std::atan2(x, y + m_shortRadius);
  return {0.5 + 0.5 * t / FanMath::radians(m_openingAngle), FanMath::beyondArc(m_shortRadius, x, y) / depth()};
}

void FrameGeometryConvex::scale(const Eigen::Vector2d& factors) {
  setDepth(depth() * factors.y());
  m_shortRadius *= factors.y();
}

FrameGeometry::Shader FrameGeometryConvex::shader() const {
  return {std::string(FanMath::kShaderText) + R"(
vec2 @ToPhysical(vec2 uv) {
  vec2 turn = @Turn((2.0 * uv.x - 1.0) * @Opening);
  float l = uv.y * @Depth;
  return vec2((@Radius + l) * turn.x, l - (@Radius + l) * turn.y);
}
vec2 @ToNormalized(vec2 p) {
  vec2 fromApex = vec2(p.x, p.y + @Radius);
  return vec2(0.5 + 0.5 * @Angle(fromApex) / @Opening, @Power(p, @Radius) / (length(fromApex) + @Radius) / @Depth);
}
)",
          {{"Opening", FanMath::radians(m_openingAngle)}, {"Radius", m_shortRadius}, {"Depth", depth()}}};
}

Geometry::AlignedBox FrameGeometryConvex::bounds() const {
  Geometry::AlignedBox box;
  const double opening = std::abs(FanMath::radians(m_openingAngle));
  for (const double t : FanMath::extremeAngles(-opening, opening)) {
    const Eigen::Vector2d top = FanMath::onArc(m_shortRadius, t);
    box.extend(top);
    box.extend(top + depth() * Eigen::Vector2d(std::sin(t), std::cos(t)));
  }
  return box;
}

} // namespace Kelvaris::US
