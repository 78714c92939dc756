#include "model/FrameColumnSearch.h"

#include "US/FrameGeometry.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Kelvaris::US {
namespace {

using Eigen::Vector2d;

double cross(const Vector2d& a, const Vector2d& b) {
  return a.x() * b.y() - a.y() * b.x();
}

} // namespace

FrameColumnSearch::FrameColumnSearch(const Geometry::Polygon2D& region) : m_region(region) {
  const std::vector<Vector2d>& corners = region.points();
  for (const Vector2d& corner : corners) {
    m_isFinite = m_isFinite && corner.allFinite();
    m_extent = std::max(m_extent, corner.cwiseAbs().maxCoeff());
  }
  if (!m_isFinite || corners.size() != 4) return;

  std::array<Vector2d, 4> edges;
  for (std::size_t i = 0; i < 4; ++i)
    edges[i] = corners[(i + 1) % 4] - corners[i];
  // Four corners that all turn the same way are convex. Without any turn they lie on a line: both sides bound it.
  bool turnsLeft = true, turnsRight = true;
  for (std::size_t i = 0; i < 4; ++i) {
    const double turn = cross(edges[i], edges[(i + 1) % 4]);
    turnsLeft = turnsLeft && turn >= 0.0;
    turnsRight = turnsRight && turn <= 0.0;
  }
  for (std::size_t i = 0; i < 4; ++i) {
    if (!(edges[i].squaredNorm() > 0.0)) continue;
    const Vector2d left = Vector2d(-edges[i].y(), edges[i].x()).normalized();
    if (turnsLeft) m_halfPlanes.push_back({left, left.dot(corners[i])});
    if (turnsRight) m_halfPlanes.push_back({-left, -left.dot(corners[i])});
  }
}

/// Stretch [from, to] of the way from top (0) to bottom (1) outside which no point lies in the region; nothing if none
/// does at all. Wider than the region by far more than the edges' tolerance and rounding.
std::optional<std::pair<double, double>> FrameColumnSearch::stretch(const Vector2d& top, const Vector2d& bottom) const {
  double from = 0.0, to = 1.0;
  const double extent = std::max({m_extent, top.cwiseAbs().maxCoeff(), bottom.cwiseAbs().maxCoeff()});
  const double margin = 1e-6 + 1e-10 * extent;
  for (const HalfPlane& side : m_halfPlanes) {
    const double inside = side.normal.dot(top) - side.offset + margin;
    const double gain = side.normal.dot(bottom - top);
    if (gain > 0.0)
      from = std::max(from, -inside / gain);
    else if (gain < 0.0)
      to = std::min(to, -inside / gain);
    else if (inside < 0.0)
      return std::nullopt;
  }
  if (from > to) return std::nullopt;
  return std::pair(from, to);
}

std::optional<FrameColumnSearch::Hit> FrameColumnSearch::lowestPoint(const FrameGeometry& geometry, double u,
                                                                     int numRows) const {
  if (!m_isFinite) return std::nullopt;
  const auto pointAt = [&](double v) { return geometry.convertPoint({u, v}, FrameGeometry::NormalizedToPhysical); };
  const double last = numRows - 1;
  int first = 0, lowest = numRows - 1;
  if (const Vector2d top = pointAt(0.0), bottom = pointAt(1.0);
      !m_halfPlanes.empty() && top.allFinite() && bottom.allFinite()) {
    const auto part = stretch(top, bottom);
    if (!part) return std::nullopt;
    first = std::max(first, static_cast<int>(std::floor(part->first * last)) - 1);
    lowest = std::min(lowest, static_cast<int>(std::ceil(part->second * last)) + 1);
  }
  for (int row = lowest; row >= first; --row)
    if (const Vector2d point = pointAt(row / last); m_region.includesPoint(point)) return Hit{row, point};
  return std::nullopt;
}

} // namespace Kelvaris::US
