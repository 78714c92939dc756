#pragma once

#include "US/FrameGeometry.h"

namespace Kelvaris::US {

/// The fan of a curved array with every line turned by the same angle: lines start on the arc of the array at angle t
/// and run in the direction t + s.
///
///                    * apex (0, -R)          R = shortRadius, s = steering
///                   / \                      t = (2u - 1) opening, l = v depth
///                  /   \  R                  x = R sin t + l sin(t + s)
///          u = 0  /     \  u = 1             y = R cos t - R + l cos(t + s)
///   v = 0        +._   _.+                     = l cos(t + s) - 2 R sin^2(t/2)
///                |  `+'    `.     --> x
///                |   .\      `.              p = x^2 + y (y + 2R)         (law of cosines: p = l^2 + 2 R l cos s)
///                |   . \       `.  depth     l = p / (R cos s + sqrt(R^2 cos^2 s + p))
///                |   .  \       _+           a = (l sin s, R + l cos s)   (the point as seen for t = 0)
///   v = 1        +._ .   +  _.-'             t = angle from a to (x, y + R)
///                   `.-----'                 u = 0.5 + t / (2 opening),  v = l / depth
///                    y      (s > 0)
///
/// The conversion to normalised coordinates needs s between -90 and 90 degrees. Points so deep inside the arc that no
/// line, drawn on backwards, passes through them have no normalised coordinates.
class FrameGeometryConvexSteered : public FrameGeometry {
public:
  explicit FrameGeometryConvexSteered(CoordinateSystem coordinateSystem = CoordinateSystem::Image)
      : FrameGeometry(coordinateSystem) {}

  std::string type() const override { return "FrameGeometryConvexSteered"; }
  std::unique_ptr<FrameGeometry> clone() const override { return std::make_unique<FrameGeometryConvexSteered>(*this); }
  Geometry::AlignedBox bounds() const override;

  /// Half the angle between the starts of the outer lines, seen from the apex, in degrees.
  double openingAngle() const { return m_openingAngle; }
  void setOpeningAngle(double degrees) { m_openingAngle = degrees; }
  /// Radius of the array's arc, in mm.
  double shortRadius() const { return m_shortRadius; }
  void setShortRadius(double radius) { m_shortRadius = radius; }
  /// Angle between a line and the array's normal at its start, in degrees.
  double steeringAngle() const { return m_steeringAngle; }
  void setSteeringAngle(double degrees) { m_steeringAngle = degrees; }
  /// Centre of the array's arc, in frame coordinates.
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
  double m_steeringAngle = 0.0;
};

} // namespace Kelvaris::US
