#include "US/FrameGeometryConvexSteered.h"

#include "US/FanMath.h"

#include <cmath>
#include <limits>

namespace Kelvaris::US {

std::vector<FrameGeometry::Value> FrameGeometryConvexSteered::values() const {
  return {{.key = "openingAngle", .value = m_openingAngle},
          {.key = "shortRadius", .value = m_shortRadius},
          {.key = "steeringAngle", .value = m_steeringAngle, .required = false}};
}

void FrameGeometryConvexSteered::setValues(const std::vector<double>& values) {
  m_openingAngle = values[0];
  m_shortRadius = values[1];
  m_steeringAngle = values[2];
}

Eigen::Vector2d FrameGeometryConvexSteered::toPhysical(double u, double v) const {
  const double t = (2.0 * u - 1.0) * FanMath::radians(m_openingAngle);
  const double direction = t + FanMath::radians(m_steeringAngle);
  return FanMath::onArc(m_shortRadius, t) + v * depth() * Eigen::Vector2d(std::sin(direction), std::cos(direction));
}

Eigen::Vector2d FrameGeometryConvexSteered::toNormalized(double x, double y) const {
  const double sine = std::sin(FanMath::radians(m_steeringAngle));
  const double cosine = std::cos(FanMath::radians(m_steeringAngle));
  if (!(cosine > 0.0)) return Eigen::Vector2d::Constant(std::numeric_limits<double>::quiet_NaN());

  const double base = m_shortRadius * cosine;
  const double power = FanMath::power(m_shortRadius, x, y);
  const double l = power == 0.0 ? 0.0 : power / (base + std::sqrt(base * base + power));
  const Eigen::Vector2d seen(l * sine, m_shortRadius + l * cosine);
  const double fromApex = y + m_shortRadius;
  const double t = std::atan2(seen.y() * x - seen.x() * fromApex, seen.x() * x + seen.y() * fromApex);
  return {0.5 + 0.5 * t / FanMath::radians(m_openingAngle), l / depth()};
}

void FrameGeometryConvexSteered::scale(const Eigen::Vector2d& factors) {
  setDepth(depth() * factors.y());
  m_shortRadius *= factors.y();
}

FrameGeometry::Shader FrameGeometryConvexSteered::shader() const {
  const double steering = FanMath::radians(m_steeringAngle);
  return {std::string(FanMath::kShaderText) + R"(
vec2 @ToPhysical(vec2 uv) {
  vec2 turn = @Turn((2.0 * uv.x - 1.0) * @Opening);
  float cosine = 1.0 - turn.y;
  vec2 direction = vec2(turn.x * @Cosine + cosine * @Sine, cosine * @Cosine - turn.x * @Sine);
  return @Radius * vec2(turn.x, -turn.y) + uv.y * @Depth * direction;
}
vec2 @ToNormalized(vec2 p) {
  if (@Cosine <= 0.0)
    return @Undefined();
  float base = @Radius * @Cosine;
  float power = @Power(p, @Radius);
  float l = power / (base + sqrt(base * base + power));
  vec2 seen = vec2(l * @Sine, @Radius + l * @Cosine);
  vec2 fromApex = vec2(p.x, p.y + @Radius);
  float t = @Angle(vec2(seen.y * fromApex.x - seen.x * fromApex.y, dot(seen, fromApex)));
  return vec2(0.5 + 0.5 * t / @Opening, l / @Depth);
}
)",
          {{"Opening", FanMath::radians(m_openingAngle)},
           {"Radius", m_shortRadius},
           {"Depth", depth()},
           {"Sine", std::sin(steering)},
           {"Cosine", std::cos(steering)}}};
}

Geometry::AlignedBox FrameGeometryConvexSteered::bounds() const {
  Geometry::AlignedBox box;
  const double opening = std::abs(FanMath::radians(m_openingAngle));
  const double steering = FanMath::radians(m_steeringAngle);
  for (const double t : FanMath::extremeAngles(-opening, opening))
    box.extend(FanMath::onArc(m_shortRadius, t));
  // The ends of the lines lie on an arc too, turned by `lead` against their starts.
  const double lead = std::atan2(depth() * std::sin(steering), m_shortRadius + depth() * std::cos(steering));
  for (const double turned : FanMath::extremeAngles(-opening + lead, opening + lead)) {
    const double t = turned - lead;
    const double direction = t + steering;
    box.extend(FanMath::onArc(m_shortRadius, t) + depth() * Eigen::Vector2d(std::sin(direction), std::cos(direction)));
  }
  return box;
}

} // namespace Kelvaris::US
