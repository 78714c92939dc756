#pragma once

#include "US/FrameGeometry.h"

namespace Kelvaris::US {

/// A fan whose lines start on an arc around a virtual apex behind the array, with a bottom between round and flat.
///
///                  * apex (0, -R)              R = shortRadius, L = longRadius, c = bottomCurvature
///                 /|\                          t = (2u - 1) opening
///                / | \  R
///        u = 0  /  |  \  u = 1                 distance of the bottom from the apex, along the line at t:
///   v = 0      +._ | _.+                         B = c L + (1 - c) L / cos t
///             /   `+'   \      --> x           length of the line:
///            /     |     \  D                    D = B - R = depth + 2 (1 - c) L sin^2(t/2) / cos t
///           /      |      \                    r = R + v D
///   v = 1  +._     |     _.+   c = 1:          x = r sin t
///         /   `''--+--''`   \    arc           y = r cos t - R = v D cos t - 2 R sin^2(t/2)
///        +---------+---------+ c = 0:
///                  y             y = depth     t = atan2(x, y + R),  u = 0.5 + t / (2 opening)
///                                              v = (r - R) / D,  r - R = (x^2 + y (y + 2R)) / (r + R)
///
/// depth = L - R is the length of the middle line. setDepth moves L, setLongRadius moves the depth, setShortRadius
/// keeps the depth and so moves L. A bottom that isn't wholly round ends where a line is level: beyond 90 degrees there
/// are no points.
class FrameGeometrySector : public FrameGeometry {
public:
  explicit FrameGeometrySector(CoordinateSystem coordinateSystem = CoordinateSystem::Image)
      : FrameGeometry(coordinateSystem) {}

  std::string type() const override { return "FrameGeometrySector"; }
  std::unique_ptr<FrameGeometry> clone() const override { return std::make_unique<FrameGeometrySector>(*this); }
  Geometry::AlignedBox bounds() const override;

  /// Half the angle between the outer lines, in degrees.
  double openingAngle() const { return m_openingAngle; }
  void setOpeningAngle(double degrees) { m_openingAngle = degrees; }
  /// Distance from the apex to the top of the frame, in mm.
  double shortRadius() const { return m_shortRadius; }
  void setShortRadius(double radius) { m_shortRadius = radius; }
  /// Distance from the apex to the bottom of the frame along the middle line, in mm.
  double longRadius() const { return m_shortRadius + depth(); }
  void setLongRadius(double radius) { setDepth(radius - m_shortRadius); }
  /// 1 for a round bottom (as in a new geometry), 0 for a flat one.
  double bottomCurvature() const { return m_bottomCurvature; }
  void setBottomCurvature(double curvature) { m_bottomCurvature = curvature; }
  /// Where all lines meet, in frame coordinates.
  Eigen::Vector2d apex() const { return {0.0, -m_shortRadius}; }

protected:
  std::vector<Value> values() const override;
  void setValues(const std::vector<double>& values) override;
  std::string contradiction(double depth, const std::vector<double>& values) const override;
  void scale(const Eigen::Vector2d& factors) override;
  Shader shader() const override;
  Eigen::Vector2d toPhysical(double u, double v) const override;
  Eigen::Vector2d toNormalized(double x, double y) const override;

private:
  double lineLength(double t) const;
  Eigen::Vector2d onLine(double t, double fromTop) const;

  double m_openingAngle = 0.0;
  double m_shortRadius = 0.0;
  double m_bottomCurvature = 1.0;
};

} // namespace Kelvaris::US
