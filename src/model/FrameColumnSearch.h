#pragma once

#include "Core/Polygon2D.h"

#include <Eigen/Core>

#include <optional>
#include <utility>
#include <vector>

namespace Kelvaris::US {

class FrameGeometry;

/// Finds the deepest sample of an image column that lies in a region. Columns of a frame are straight lines, so a
/// region of four corners without a dent cuts one stretch out of a column; only the rows of that stretch are tested.
/// The result is that of testing every row from the bottom up with Polygon2D::includesPoint.
class FrameColumnSearch {
public:
  /// The region must outlive the search.
  explicit FrameColumnSearch(const Geometry::Polygon2D& region);

  struct Hit {
    int row;
    Eigen::Vector2d point; ///< frame coordinates, mm
  };
  /// The highest row y of `numRows` whose point at the normalised coordinates (u, y / (numRows - 1)) lies in the
  /// region.
  std::optional<Hit> lowestPoint(const FrameGeometry& geometry, double u, int numRows) const;

private:
  /// The side of an edge on which the region lies: normal . p >= offset.
  struct HalfPlane {
    Eigen::Vector2d normal;
    double offset;
  };

  std::optional<std::pair<double, double>> stretch(const Eigen::Vector2d& top, const Eigen::Vector2d& bottom) const;

  const Geometry::Polygon2D& m_region;
  bool m_isFinite = true;
  double m_extent = 0.0;               // largest coordinate, mm
  std::vector<HalfPlane> m_halfPlanes; // empty if the region isn't known to be convex
};

} // namespace Kelvaris::US
