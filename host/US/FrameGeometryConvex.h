#pragma once

#include "US/FrameGeometry.h"

namespace Kelvaris::US {

/// The fan of a curved array: lines that start on the arc of the array and run straight away from its centre.
///
///                    * apex (0, -R)                R = shortRadius, t = (2u - 1) opening
///                   /|\                            r = R + v depth
///                  / | \  R                        x = r sin t
///          u = 0  /  |  \  u = 1                   y = r cos t - R
///   v = 0        +._ | _.+   (the array)             = v depth cos t - 2 R sin^2(t/2)
///               /   `+'   \        --> x
///              /     |     \                       r = |(x, y + R)|
///             /      |      \  depth               t = atan2(x, y + R)
///   v = 1    +._     |     _.+                     u = 0.5 + t / (2 opening)
///               `''--+--''`                        v = (r - R) / depth,  r - R = (x^2 + y (y + 2R)) / (r + R)
///                    y
///
/// The second forms of y and r - R keep their digits where R is large against the frame.
class FrameGeometryConvex : public FrameGeometry {
public:
  explicit FrameGeometryConvex(CoordinateSystem coordinateSystem = CoordinateSystem::Image)
      : FrameGeometry(coordinateSystem) {}

  std::string type() const override { return "FrameGeometryConvex"; }
  std::unique_ptr<FrameGeometry> clone() const override { return std::make_unique<FrameGeometryConvex>(*this); }
  Geometry::AlignedBox bounds() const override;

  /// Half the angle between the outer lines, in degrees.
  double openingAngle() const { return m_openingAngle; }
  void setOpeningAngle(double degrees) { m_openingAngle = degrees; }
  /// Radius of the array's arc, in mm.
  double shortRadius() const { return m_shortRadius; }
  void setShortRadius(double radius) { m_shortRadius = radius; }
  /// Where all lines meet, in frame coordinates.
  Eigen::Vector2d apex() const { return {0.0, -m_shortRadius}; }

protected:
  std::vector<Value> values() const override;
  void setValues(const std::vector<double>& values) override;
  void scale(const Eigen::Vector2d& factors) override;
  Shader shader() const override;
  Eigen::Vector2d toPhysical(double u, double v) const override;
  Eigen::Vector2d toNormalized(double x, double y) const override;

private:
  double m_openingAngle = 0.0;
  double m_shortRadius = 0.0;
};

} // namespace Kelvaris::US
