#include "Core/Spline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace Kelvaris {
namespace {

using Points = std::vector<Eigen::Vector3d>;

constexpr double kTolerance = 1e-10;

Points sampled(const Points& points, int count, double tolerance = kTolerance) {
  Points samples(3, Eigen::Vector3d::Ones()); // what was in there must go
  Spline(points).getUniformSamples(count, samples, tolerance);
  return samples;
}

Points arc(int elements, double pitch, double radius) {
  Points points;
  for (int i = 0; i < elements; ++i) {
    const double a = (i - 0.5 * (elements - 1)) * pitch / radius;
    points.emplace_back(radius * std::sin(a), radius * std::cos(a) - radius, 0.0);
  }
  return points;
}

TEST(Spline, FollowsTheArcOfAConvexArray) {
  for (const auto& [pitch, radius] : {std::pair(0.47, 60.0), {0.2, 10.0}, {0.3, 1000.0}})
    for (const int count : {2, 3, 16, 257}) {
      const Points samples = sampled(arc(128, pitch, radius), count);
      const Points expected = arc(count, pitch * 127 / (count - 1), radius);
      ASSERT_EQ(samples.size(), expected.size());
      for (std::size_t i = 0; i < samples.size(); ++i)
        EXPECT_LT((samples[i] - expected[i]).norm(), 1e-5) << radius << ", " << i << " of " << count;
    }
}

TEST(Spline, HasTheArcLengthsOfAParabola) {
  // Through three points with equal chords the curve is the parabola y = x^2, of arc length
  // (asinh(2x) + 2x sqrt(1 + 4x^2)) / 4 from its vertex.
  const auto reached = [](double x) { return 0.25 * (std::asinh(2 * x) + 2 * x * std::sqrt(1 + 4 * x * x)); };
  for (const int count : {3, 8, 41}) {
    const Points samples = sampled({{-3, 9, 1}, {0, 0, 1}, {3, 9, 1}}, count);
    for (int i = 0; i < count; ++i) {
      const Eigen::Vector3d& p = samples[static_cast<std::size_t>(i)];
      EXPECT_NEAR(p.y(), p.x() * p.x(), 1e-12);
      EXPECT_DOUBLE_EQ(p.z(), 1.0);
      EXPECT_NEAR(reached(p.x()), (2.0 * i / (count - 1) - 1.0) * reached(3.0), kTolerance) << i << " of " << count;
    }
  }
}

TEST(Spline, PassesThroughItsPointsWhateverTheirSpacing) {
  const Points points = {{0, 0, 0}, {1, 2, 0}, {1.01, 2.5, 0}, {7, 1, 3}, {7, 1.001, 3}, {12, -4, 0}};
  const Points samples = sampled(points, 20001);
  const double step = (samples[1] - samples[0]).norm();
  for (const Eigen::Vector3d& point : points) {
    const auto isNear = [&](const Eigen::Vector3d& sample) { return (sample - point).norm() <= step; };
    EXPECT_TRUE(std::any_of(samples.begin(), samples.end(), isNear)) << point.transpose();
  }
  // So close together, chords are arcs.
  for (std::size_t i = 1; i < samples.size(); ++i)
    ASSERT_NEAR((samples[i] - samples[i - 1]).norm(), step, 1e-3 * step) << i;
}

TEST(Spline, StraightArraysKeepTheirElementsAndTheirMiddleExactly) {
  for (int elements = 2; elements < 130; ++elements)
    for (const double pitch : {0.23, 0.298}) {
      Points points;
      for (int i = 0; i < elements; ++i)
        points.emplace_back(pitch * ((1 - elements) * 0.5) + i * pitch, 0.0, 0.0);
      EXPECT_EQ(sampled(points, elements), points);
      EXPECT_EQ(sampled(points, 3)[1], Eigen::Vector3d::Zero()) << elements << " x " << pitch;
    }
}

TEST(Spline, FewPointsAndFewSamples) {
  const Eigen::Vector3d a(1, 2, 3), b(4, 2, 3);
  const struct {
    Points points;
    int count;
    Points expected;
  } cases[] = {
      {{}, 5, {}}, {{a, b}, -7, {}}, {{a, b}, 1, {a}}, {{a}, 3, {a, a, a}}, {{a, a, b, b}, 3, {a, 0.5 * (a + b), b}}};
  for (const auto& [points, count, expected] : cases)
    EXPECT_EQ(sampled(points, count), expected) << count;
  for (const double tolerance : {-1.0, std::numeric_limits<double>::quiet_NaN()})
    EXPECT_LT((sampled({a, b}, 4, tolerance)[1] - Eigen::Vector3d(2, 2, 3)).norm(), 1e-14) << tolerance;
  // There and back: a straight line, but not a straight way.
  EXPECT_LT((sampled({a, b, a}, 3)[1] - b).norm(), 1e-9);
  EXPECT_TRUE(sampled({a, Eigen::Vector3d::Constant(std::nan("")), b}, 3)[2].array().isNaN().all());
}

} // namespace
} // namespace Kelvaris
