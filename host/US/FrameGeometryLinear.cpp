#include "US/FrameGeometryLinear.h"

#include "US/FanMath.h"

#include <cmath>

namespace Kelvaris::US {

std::vector<FrameGeometry::Value> FrameGeometryLinear::values() const {
  return {{.key = "width", .value = m_width}, {.key = "steeringAngle", .value = m_steeringAngle, .required = false}};
}

void FrameGeometryLinear::setValues(const std::vector<double>& values) {
  m_width = values[0];
  m_steeringAngle = values[1];
}

Eigen::Vector2d FrameGeometryLinear::toPhysical(double u, double v) const {
  const double y = v * depth();
  return {(u - 0.5) * m_width + y * std::tan(FanMath::radians(m_steeringAngle)), y};
}

Eigen::Vector2d FrameGeometryLinear::toNormalized(double x, double y) const {
  return {0.5 + (x - y * std::tan(FanMath::radians(m_steeringAngle))) / m_width, y / depth()};
}

void FrameGeometryLinear::scale(const Eigen::Vector2d& factors) {
  const double slope = std::tan(FanMath::radians(m_steeringAngle)) * factors.x() / factors.y();
  setDepth(depth() * factors.y());
  m_width *= factors.x();
  m_steeringAngle = std::atan(slope) / FanMath::radians(1.0);
}

FrameGeometry::Shader FrameGeometryLinear::shader() const {
  return {R"(
vec2 @ToPhysical(vec2 uv) {
  float y = uv.y * @Depth;
  return vec2((uv.x - 0.5) * @Width + y * @Slope, y);
}
vec2 @ToNormalized(vec2 p) {
  return vec2(0.5 + (p.x - p.y * @Slope) / @Width, p.y / @Depth);
}
)",
          {{"Width", m_width}, {"Depth", depth()}, {"Slope", std::tan(FanMath::radians(m_steeringAngle))}}};
}

Geometry::AlignedBox FrameGeometryLinear::bounds() const {
  Geometry::AlignedBox box;
  for (const double u : {0.0, 1.0})
    for (const double v : {0.0, 1.0})
      box.extend(convertPoint({u, v}, NormalizedToPhysical));
  return box;
}

} // namespace Kelvaris::US
