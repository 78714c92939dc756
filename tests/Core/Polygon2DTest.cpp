#include "Core/Polygon2D.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace Kelvaris::Geometry {
namespace {

using Points = std::vector<Eigen::Vector2d>;

constexpr double kInf = std::numeric_limits<double>::infinity();

/// How often the closed polygon turns around the point, from the angles at which its edges are seen.
int turns(const Points& polygon, const Eigen::Vector2d& point) {
  double angle = 0.0;
  for (std::size_t i = 0; i < polygon.size(); ++i) {
    const Eigen::Vector2d a = polygon[i] - point;
    const Eigen::Vector2d b = polygon[(i + 1) % polygon.size()] - point;
    angle += std::atan2(a.x() * b.y() - a.y() * b.x(), a.dot(b));
  }
  return static_cast<int>(std::lround(angle / (2.0 * std::numbers::pi)));
}

double edgeDistance(const Points& polygon, const Eigen::Vector2d& point) {
  double nearest = kInf;
  for (std::size_t i = 0; i < polygon.size(); ++i) {
    const Eigen::Vector2d a = polygon[i];
    const Eigen::Vector2d edge = polygon[(i + 1) % polygon.size()] - a;
    const double squares = edge.squaredNorm();
    const double along = squares > 0.0 ? std::clamp((point - a).dot(edge) / squares, 0.0, 1.0) : 0.0;
    nearest = std::min(nearest, (point - a - along * edge).norm());
  }
  return nearest;
}

/// Polygons of 0 to 7 vertices: points, segments, dented, crossed and repeated ones.
TEST(Polygon2D, AgreesWithTurnsAndEdgeDistanceEverywhere) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> coordinate(-30.0, 30.0);
  std::uniform_int_distribution<int> grid(-3, 3);
  int inside = 0;
  for (int trial = 0; trial < 3000; ++trial) {
    const bool onGrid = trial % 2 == 0; // grid points meet vertices, edges and their extensions all the time
    const auto draw = [&]() -> Eigen::Vector2d {
      if (onGrid) return {grid(random), grid(random)};
      return {coordinate(random), coordinate(random)};
    };
    Points points(static_cast<std::size_t>(trial % 8));
    std::generate(points.begin(), points.end(), draw);
    const Polygon2D polygon(points);
    for (int i = 0; i < 40; ++i) {
      const Eigen::Vector2d point = draw();
      const bool expected = edgeDistance(points, point) <= 1e-9 || turns(points, point) % 2 != 0;
      ASSERT_EQ(polygon.includesPoint(point), expected) << "trial " << trial << " at " << point.transpose();
      inside += expected ? 1 : 0;
    }
  }
  EXPECT_GT(inside, 10000);
}

TEST(Polygon2D, EdgesBelongToItWithinABillionthOfAMillimetreHoweverFarTheirEnds) {
  // A strip at 45 degrees whose far end lies at 10^12 mm, walked both ways round.
  Points points = {{-5, 0}, {1e12 - 5, 1e12}, {1e12 + 5, 1e12}, {5, 0}};
  for (int way = 0; way < 2; ++way) {
    const Polygon2D polygon(points);
    for (const double along : {0.0, 0.1, 7.0, 123.0})
      for (const double edge : {-5.0, 5.0}) {
        const double outward = std::copysign(1.5e-9, edge); // 1.06e-9 across the edge
        EXPECT_TRUE(polygon.includesPoint({edge + along + 0.6 * outward, along})) << edge << " + " << along;
        EXPECT_FALSE(polygon.includesPoint({edge + along + outward, along})) << edge << " + " << along;
      }
    std::reverse(points.begin(), points.end());
  }
}

TEST(Polygon2D, NothingUndefinedIsInside) {
  for (const double undefined : {std::nan(""), kInf}) {
    EXPECT_FALSE(Polygon2D({{0, 0}, {4, 0}, {4, 4}}).includesPoint({undefined, 1}));
    EXPECT_FALSE(Polygon2D({{0, 0}, {4, 0}, {4, undefined}}).includesPoint({1, 0}));
  }
}

TEST(Polygon2D, EquivalenceIsExactAndOrdered) {
  const Points points = {{0, 0}, {1, 0}, {1, 1}};
  for (const Points& other : {points, {{1, 0}, {1, 1}, {0, 0}}, {{0, 0}, {1, 0}}, {{0, 0}, {1, 0}, {1, 1 + 1e-15}}})
    EXPECT_EQ(Polygon2D(points).isEquivalent(Polygon2D(other)), points == other);
}

} // namespace
} // namespace Kelvaris::Geometry
