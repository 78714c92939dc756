#include "model/FrameColumnSearch.h"

#include "US/GeometryCases.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace Kelvaris::US {
namespace {

using Eigen::Vector2d;

/// Regions of all kinds around the frame: made from any corners (dented, crossed, left or right), from corners that
/// lie on samples, flattened to lines, far away or undefined.
std::vector<Vector2d> corners(int kind, const FrameGeometry& geometry, std::mt19937& random) {
  std::uniform_real_distribution<double> x(-50.0, 50.0), y(-20.0, 70.0);
  std::uniform_int_distribution<int> sixteenth(0, 16);
  std::vector<Vector2d> points;
  for (int i = 0; i < (kind == 5 ? 5 : 4); ++i)
    points.emplace_back(x(random), y(random));
  if (kind == 1)
    for (Vector2d& point : points)
      point = geometry.convertPoint({sixteenth(random) / 16.0, sixteenth(random) / 16.0},
                                    FrameGeometry::NormalizedToPhysical);
  if (kind == 2) { // the parallelogram of a plane wave
    points[1] = points[0] + Vector2d(15.0, 50.0);
    points[2] = points[3] + Vector2d(15.0, 50.0);
  }
  if (kind == 3) points[3] = points[0], points[2] = points[1];
  if (kind == 4)
    points[1] = points[0] + 1e8 * (points[1] - points[0]), points[2] = points[3] + 1e8 * (points[2] - points[3]);
  if (kind == 6) points[3].x() = std::numeric_limits<double>::quiet_NaN();
  return points;
}

TEST(FrameColumnSearch, FindsWhatTryingEveryRowFinds) {
  std::mt19937 random(11);
  int hits = 0;
  for (const auto& geometry : {Tests::linearCase(40, 0, 50).geometry, Tests::sectorCase(35, 20, 70, 1).geometry,
                               Tests::convexCase(40, 60, 50).geometry})
    for (const int numRows : {0, 1, 2, 65})
      for (int trial = 0; trial < 800; ++trial) {
        const Geometry::Polygon2D region(corners(trial % 7, *geometry, random));
        const FrameColumnSearch search(region);
        for (const double u : {0.0, 0.25, 0.4375, 0.7, 1.0, std::numeric_limits<double>::quiet_NaN()}) {
          int expected = numRows - 1;
          while (expected >= 0 && !region.includesPoint(geometry->convertPoint({u, expected / (numRows - 1.0)},
                                                                               FrameGeometry::NormalizedToPhysical)))
            --expected;
          const auto found = search.lowestPoint(*geometry, u, numRows);
          ASSERT_EQ(found ? found->row : -1, expected) << geometry->type() << " trial " << trial << " column " << u;
          hits += found.has_value();
        }
      }
  EXPECT_GT(hits, 2000);
}

} // namespace
} // namespace Kelvaris::US
