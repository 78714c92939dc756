#pragma once

#include "Core/AlignedBox.h"

#include <Eigen/Core>

#include <vector>

namespace Kelvaris::Geometry {

/// A closed polygon in the plane, in mm: the last vertex is joined to the first. One vertex is a point, two are a line
/// segment.
class Polygon2D {
public:
  /// A point this near to an edge, in mm, counts as on it.
  static constexpr double kEdgeTolerance = 1e-9;

  Polygon2D() = default;
  explicit Polygon2D(std::vector<Eigen::Vector2d> points);

  const std::vector<Eigen::Vector2d>& points() const { return m_points; }

  /// True if the point lies on an edge (to within kEdgeTolerance) or in the interior. The interior is that of the
  /// even-odd rule: a ray from the point crosses the edges an odd number of times, so where a polygon overlaps itself
  /// twice is outside. A point with a NaN is in no polygon, and a polygon with a vertex that isn't finite includes no
  /// point. May be called from several threads.
  bool includesPoint(const Eigen::Vector2d& point) const;

  /// True if both have exactly the same vertices in the same order. The order counts, as the first vertex of a scan
  /// line is its shallow end. A NaN differs from everything.
  bool isEquivalent(const Polygon2D& other) const { return m_points == other.m_points; }

private:
  std::vector<Eigen::Vector2d> m_points;
  AlignedBox m_bounds; // empty if a vertex isn't finite
};

} // namespace Kelvaris::Geometry
