#pragma once

#include <Eigen/Core>

#include <cstddef>
#include <vector>

namespace Kelvaris {

/// A smooth curve through given points: per coordinate an interpolating cubic spline over the chord length, with
/// not-a-knot ends (de Boor, A Practical Guide to Splines, 1978, chapter IV), so that it keeps its fourth order up to
/// both end points. Two points give the straight line, three a parabola. A point equal to its predecessor is left out.
class Spline {
public:
  explicit Spline(const std::vector<Eigen::Vector3d>& points);

  /// Replaces `samples` by `count` points at equal distances along the curve, from its first point to its last, both
  /// exact. Each lies within `tolerance` (in the unit of the points) of its place along the curve; a given point that
  /// lies so near is returned as it was given. A count of 1 gives the first point, and below 1 nothing. A curve of no
  /// points has no samples, a curve of one point has `count` times that point, and one with a point that isn't finite
  /// has samples of NaN.
  void getUniformSamples(int count, std::vector<Eigen::Vector3d>& samples, double tolerance) const;

private:
  // A span is the piece from m_points[span] to the next; t runs over it from 0 to its chord length.
  Eigen::Vector3d position(std::size_t span, double t) const;
  double speed(std::size_t span, double t) const;
  double arcLength(std::size_t span, double from, double to, double tolerance) const;
  double chordParameter(std::size_t span, double target, double spanLength, double tolerance) const;
  std::vector<Eigen::Vector3d> secondDerivatives() const;
  bool isStraight() const;

  std::vector<Eigen::Vector3d> m_points;
  std::vector<double> m_chords;          // one per span
  std::vector<Eigen::Vector3d> m_second; // second derivative by chord length, one per point
};

} // namespace Kelvaris
