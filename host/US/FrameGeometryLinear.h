#pragma once

#include "US/FrameGeometry.h"

namespace Kelvaris::US {

/// A parallelogram: parallel lines that start side by side on the x axis.
///
///            -width/2    0     width/2
///   v = 0       +--------+--------+    --> x      x = (u - 0.5) width + v depth tan(steering)
///                \       .\        \  |           y = v depth
///                 \      . \        \ |  depth
///   v = 1          +-----.--+--------+|           u = 0.5 + (x - y tan(steering)) / width
///               u = 0    .         u = 1          v = y / depth
///                        y   (steering > 0)
class FrameGeometryLinear : public FrameGeometry {
public:
  explicit FrameGeometryLinear(CoordinateSystem coordinateSystem = CoordinateSystem::Image)
      : FrameGeometry(coordinateSystem) {}

  std::string type() const override { return "FrameGeometryLinear"; }
  std::unique_ptr<FrameGeometry> clone() const override { return std::make_unique<FrameGeometryLinear>(*this); }
  Geometry::AlignedBox bounds() const override;

  /// In mm.
  double width() const { return m_width; }
  void setWidth(double width) { m_width = width; }
  /// In degrees, between -90 and 90.
  double steeringAngle() const { return m_steeringAngle; }
  void setSteeringAngle(double degrees) { m_steeringAngle = degrees; }

protected:
  std::vector<Value> values() const override;
  void setValues(const std::vector<double>& values) override;
  void scale(const Eigen::Vector2d& factors) override;
  bool isIsotropic() const override { return false; }
  Shader shader() const override;
  Eigen::Vector2d toPhysical(double u, double v) const override;
  Eigen::Vector2d toNormalized(double x, double y) const override;

private:
  double m_width = 0.0;
  double m_steeringAngle = 0.0;
};

} // namespace Kelvaris::US
