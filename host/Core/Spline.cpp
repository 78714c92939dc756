#include "Core/Spline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>

namespace Kelvaris {
namespace {

/// Gauss-Legendre quadrature of order 10 over [from, to].
template <typename Function> double gauss(const Function& f, double from, double to) {
  constexpr std::array<double, 2> nodes = {0.53846931010568309, 0.90617984593866399};
  constexpr std::array<double, 2> weights = {0.47862867049936647, 0.23692688505618909};
  constexpr double centreWeight = 0.56888888888888889;
  const double centre = 0.5 * (from + to);
  const double half = 0.5 * (to - from);
  double sum = centreWeight * f(centre);
  for (std::size_t i = 0; i < nodes.size(); ++i)
    sum += weights[i] * (f(centre - half * nodes[i]) + f(centre + half * nodes[i]));
  return sum * half;
}

/// Halves the interval until both halves together agree with the whole.
template <typename Function>
double adaptive(const Function& f, double from, double to, double whole, double tolerance, int depth) {
  const double middle = 0.5 * (from + to);
  const double left = gauss(f, from, middle);
  const double right = gauss(f, middle, to);
  if (depth == 0 || !(std::abs(left + right - whole) > tolerance)) return left + right;
  return adaptive(f, from, middle, left, 0.5 * tolerance, depth - 1) +
         adaptive(f, middle, to, right, 0.5 * tolerance, depth - 1);
}

} // namespace

Spline::Spline(const std::vector<Eigen::Vector3d>& points) {
  std::unique_copy(points.begin(), points.end(), std::back_inserter(m_points));
  for (std::size_t i = 1; i < m_points.size(); ++i)
    m_chords.push_back((m_points[i] - m_points[i - 1]).stableNorm());
  m_second = secondDerivatives();
}

std::vector<Eigen::Vector3d> Spline::secondDerivatives() const {
  const std::size_t n = m_points.size();
  std::vector<Eigen::Vector3d> second(n, Eigen::Vector3d::Zero());
  if (n < 3) return second;

  const auto slope = [&](std::size_t span) -> Eigen::Vector3d {
    return (m_points[span + 1] - m_points[span]) / m_chords[span];
  };
  if (n == 3) {
    second.assign(n, 2.0 * (slope(1) - slope(0)) / (m_chords[0] + m_chords[1]));
    return second;
  }

  // Row i of the tridiagonal system makes the slope continuous at point i; the ends are eliminated by the not-a-knot
  // conditions M[0] = M[1] + (h[0] / h[1]) (M[1] - M[2]) and the same from the other side.
  std::vector<double> lower(n), diagonal(n), upper(n);
  for (std::size_t i = 1; i + 1 < n; ++i) {
    const double before = m_chords[i - 1];
    const double after = m_chords[i];
    lower[i] = before;
    diagonal[i] = 2.0 * (before + after);
    upper[i] = after;
    second[i] = 6.0 * (slope(i) - slope(i - 1));
  }
  const double first = m_chords[0] / m_chords[1];
  diagonal[1] += m_chords[0] * (1.0 + first);
  upper[1] -= m_chords[0] * first;
  const double last = m_chords[n - 2] / m_chords[n - 3];
  diagonal[n - 2] += m_chords[n - 2] * (1.0 + last);
  lower[n - 2] -= m_chords[n - 2] * last;

  for (std::size_t i = 2; i + 1 < n; ++i) {
    const double factor = lower[i] / diagonal[i - 1];
    diagonal[i] -= factor * upper[i - 1];
    second[i] -= factor * second[i - 1];
  }
  second[n - 2] /= diagonal[n - 2];
  for (std::size_t i = n - 3; i >= 1; --i)
    second[i] = (second[i] - upper[i] * second[i + 1]) / diagonal[i];
  second[0] = second[1] + first * (second[1] - second[2]);
  second[n - 1] = second[n - 2] + last * (second[n - 2] - second[n - 3]);
  return second;
}

Eigen::Vector3d Spline::position(std::size_t span, double t) const {
  const double h = m_chords[span];
  const Eigen::Vector3d& m0 = m_second[span];
  const Eigen::Vector3d& m1 = m_second[span + 1];
  const Eigen::Vector3d slope = (m_points[span + 1] - m_points[span]) / h - h / 6.0 * (2.0 * m0 + m1);
  return m_points[span] + t * (slope + t * (0.5 * m0 + t / (6.0 * h) * (m1 - m0)));
}

double Spline::speed(std::size_t span, double t) const {
  const double h = m_chords[span];
  const Eigen::Vector3d& m0 = m_second[span];
  const Eigen::Vector3d& m1 = m_second[span + 1];
  const Eigen::Vector3d slope = (m_points[span + 1] - m_points[span]) / h - h / 6.0 * (2.0 * m0 + m1);
  return (slope + t * (m0 + t / (2.0 * h) * (m1 - m0))).norm();
}

double Spline::arcLength(std::size_t span, double from, double to, double tolerance) const {
  const auto integrand = [&](double t) { return speed(span, t); };
  return adaptive(integrand, from, to, gauss(integrand, from, to), tolerance, 30);
}

/// The chord parameter at which the arc length from the beginning of the span is `target`, by Newton's method kept
/// inside a shrinking bracket.
double Spline::chordParameter(std::size_t span, double target, double spanLength, double tolerance) const {
  double low = 0.0;
  double high = m_chords[span];
  double t = high * target / spanLength;
  for (int i = 0; i < 100; ++i) {
    const double excess = arcLength(span, 0.0, t, 0.1 * tolerance) - target;
    (excess > 0.0 ? high : low) = t;
    const double newton = t - excess / speed(span, t);
    if (std::abs(excess) <= 0.1 * tolerance) return newton >= low && newton <= high ? newton : t;
    t = newton > low && newton < high ? newton : 0.5 * (low + high);
  }
  return t;
}

bool Spline::isStraight() const {
  const Eigen::Vector3d whole = m_points.back() - m_points.front();
  const double length = whole.norm();
  double along = 0.0;
  for (const Eigen::Vector3d& point : m_points) {
    const Eigen::Vector3d fromFirst = point - m_points.front();
    const double projection = fromFirst.dot(whole) / length;
    if (!(projection >= along) || !((fromFirst - projection / length * whole).norm() <= 1e-14 * length)) return false;
    along = projection;
  }
  return true;
}

void Spline::getUniformSamples(int count, std::vector<Eigen::Vector3d>& samples, double tolerance) const {
  samples.clear();
  if (count < 1 || m_points.empty()) return;
  const auto total = static_cast<std::size_t>(count);
  if (!std::all_of(m_points.begin(), m_points.end(), [](const Eigen::Vector3d& p) { return p.allFinite(); })) {
    samples.assign(total, Eigen::Vector3d::Constant(std::numeric_limits<double>::quiet_NaN()));
    return;
  }
  if (count == 1 || m_points.size() == 1) {
    samples.assign(total, m_points.front());
    return;
  }

  const std::size_t spans = m_chords.size();
  double chordSum = 0.0;
  for (const double chord : m_chords)
    chordSum += chord;
  // Below this the rounding of the sums rules.
  const double reachable = std::max(1e-14 * chordSum, std::numeric_limits<double>::min());
  const double allowed = tolerance > reachable ? tolerance : reachable;
  std::vector<double> reached(spans + 1, 0.0); // arc length at each point
  for (std::size_t i = 0; i < spans; ++i)
    reached[i + 1] = reached[i] + arcLength(i, 0.0, m_chords[i], 0.1 * allowed / static_cast<double>(spans));

  const bool straight = isStraight();
  samples.reserve(total);
  samples.push_back(m_points.front());
  std::size_t span = 0;
  for (int i = 1; i + 1 < count; ++i) {
    const double target = reached.back() * i / (count - 1);
    while (span + 1 < spans && reached[span + 1] <= target)
      ++span;
    const double before = target - reached[span];
    const double after = reached[span + 1] - target;
    if (std::min(before, after) <= allowed)
      samples.push_back(before <= after ? m_points[span] : m_points[span + 1]);
    else if (straight)
      samples.push_back(((count - 1 - i) * m_points.front() + i * m_points.back()) / (count - 1));
    else
      samples.push_back(position(span, chordParameter(span, before, reached[span + 1] - reached[span], allowed)));
  }
  samples.push_back(m_points.back());
}

} // namespace Kelvaris
