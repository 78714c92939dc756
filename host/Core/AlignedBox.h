#pragma once

#include <Eigen/Core>

#include <limits>

namespace Kelvaris::Geometry {

/// A box in the plane with its sides along the axes. A new box is empty: it contains nothing, and `extend` makes it
/// fit.
class AlignedBox {
public:
  AlignedBox() = default;
  /// Empty unless `min` is at most `max` in both coordinates.
  AlignedBox(const Eigen::Vector2d& min, const Eigen::Vector2d& max) : m_min(min), m_max(max) {}

  const Eigen::Vector2d& min() const { return m_min; }
  const Eigen::Vector2d& max() const { return m_max; }
  bool isEmpty() const { return !(m_min.x() <= m_max.x() && m_min.y() <= m_max.y()); }

  /// Sizes along the axes; zero for an empty box.
  Eigen::Vector2d extent() const { return isEmpty() ? Eigen::Vector2d::Zero() : Eigen::Vector2d(m_max - m_min); }
  double width() const { return extent().x(); }
  double height() const { return extent().y(); }
  /// NaN for an empty box.
  Eigen::Vector2d center() const {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    return isEmpty() ? Eigen::Vector2d(nan, nan) : Eigen::Vector2d(m_min + 0.5 * (m_max - m_min));
  }

  /// Grows the box just enough to contain the point. A point with a NaN is left out.
  void extend(const Eigen::Vector2d& point) {
    if (point.hasNaN()) return;
    m_min = m_min.cwiseMin(point);
    m_max = m_max.cwiseMax(point);
  }

  /// True if the point lies in the box or at most `margin` beyond a side. Never true for NaN.
  bool contains(const Eigen::Vector2d& point, double margin = 0.0) const {
    return point.x() >= m_min.x() - margin && point.x() <= m_max.x() + margin && point.y() >= m_min.y() - margin &&
           point.y() <= m_max.y() + margin;
  }

private:
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();
  Eigen::Vector2d m_min{kInfinity, kInfinity};
  Eigen::Vector2d m_max{-kInfinity, -kInfinity};
};

} // namespace Kelvaris::Geometry
