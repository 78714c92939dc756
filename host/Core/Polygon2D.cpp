#include "Core/Polygon2D.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Kelvaris::Geometry {
namespace {

double cross(const Eigen::Vector2d& a, const Eigen::Vector2d& b) {
  return a.x() * b.y() - a.y() * b.x();
}

} // namespace

Polygon2D::Polygon2D(std::vector<Eigen::Vector2d> points) : m_points(std::move(points)) {
  if (std::all_of(m_points.begin(), m_points.end(), [](const Eigen::Vector2d& p) { return p.allFinite(); }))
    for (const Eigen::Vector2d& p : m_points)
      m_bounds.extend(p);
}

bool Polygon2D::includesPoint(const Eigen::Vector2d& point) const {
  if (!m_bounds.contains(point, kEdgeTolerance)) return false;

  bool inside = false;
  const Eigen::Vector2d* previous = &m_points.back();
  for (const Eigen::Vector2d& vertex : m_points) {
    const Eigen::Vector2d& a = *previous;
    const Eigen::Vector2d& b = vertex;
    previous = &vertex;

    const Eigen::Vector2d edge = b - a;
    const Eigen::Vector2d fromA = point - a;
    const Eigen::Vector2d fromB = point - b;
    // Measured from the nearer end, so that a far end (a steep wave's region) doesn't cost the digits of the point.
    const bool nearA = fromA.squaredNorm() <= fromB.squaredNorm();
    const double side = cross(edge, nearA ? fromA : fromB);
    const double length = edge.norm();

    const bool beside = edge.dot(fromA) >= 0.0 && edge.dot(fromB) <= 0.0 && length > 0.0;
    const double distance = beside ? std::abs(side) / length : (nearA ? fromA : fromB).norm();
    if (distance <= kEdgeTolerance) return true;

    // An edge holds its lower end but not its upper one, so a ray through a vertex crosses there once or twice, never
    // halfway.
    if ((a.y() > point.y()) != (b.y() > point.y()) && (side > 0.0) == (edge.y() > 0.0)) inside = !inside;
  }
  return inside;
}

} // namespace Kelvaris::Geometry
