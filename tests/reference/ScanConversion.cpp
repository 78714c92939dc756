#include "reference/ScanConversion.h"

#include <Eigen/LU>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Kelvaris::US::Tests {

FrameInverse::FrameInverse(FramePosition position) : m_position(std::move(position)) {
  constexpr int steps = 16;
  for (int i = 0; i <= steps; ++i)
    for (int j = 0; j <= steps; ++j) {
      const Eigen::Vector2d uv(static_cast<double>(i) / steps, static_cast<double>(j) / steps);
      m_starts.emplace_back(uv, m_position(uv.x(), uv.y()));
    }
}

std::optional<Eigen::Vector2d> FrameInverse::operator()(const Eigen::Vector2d& point) const {
  Eigen::Vector2d uv = std::min_element(m_starts.begin(), m_starts.end(), [&](const auto& a, const auto& b) {
                         return (a.second - point).squaredNorm() < (b.second - point).squaredNorm();
                       })->first;
  for (int i = 0; i < 20; ++i) {
    constexpr double h = 1e-5;
    Eigen::Matrix2d jacobian;
    jacobian.col(0) = (m_position(uv.x() + h, uv.y()) - m_position(uv.x() - h, uv.y())) / (2 * h);
    jacobian.col(1) = (m_position(uv.x(), uv.y() + h) - m_position(uv.x(), uv.y() - h)) / (2 * h);
    const Eigen::Vector2d step = jacobian.inverse() * (point - m_position(uv.x(), uv.y()));
    uv += step;
    if (step.norm() < 1e-12) return uv;
    if (!((uv.array() - 0.5).abs().maxCoeff() < 2.0)) break;
  }
  return std::nullopt;
}

std::pair<Eigen::Vector2d, Eigen::Vector2d> frameBox(const FramePosition& position) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  Eigen::Vector2d min = Eigen::Vector2d::Constant(infinity), max = -min;
  constexpr int steps = 20000;
  for (int i = 0; i <= steps; ++i) {
    const double t = static_cast<double>(i) / steps;
    for (const Eigen::Vector2d& p : {position(t, 0), position(t, 1), position(0, t), position(1, t)}) {
      min = min.cwiseMin(p);
      max = max.cwiseMax(p);
    }
  }
  return {min, max};
}

namespace {

/// In pixels, 0 at the first pixel's centre.
Eigen::Vector2d pixelPosition(const MemImage& image, const Eigen::Vector2d& uv) {
  return {std::clamp(uv.x() * image.width() - 0.5, 0.0, image.width() - 1.0),
          std::clamp(uv.y() * image.height() - 0.5, 0.0, image.height() - 1.0)};
}

} // namespace

std::optional<double> sampleBilinear(const MemImage& image, const Eigen::Vector2d& uv, int slice, int channel,
                                     const std::function<bool(int column, int row)>& isValid) {
  const Eigen::Vector2d p = pixelPosition(image, uv);
  if (!isValid(static_cast<int>(std::floor(p.x() + 0.5)), static_cast<int>(std::floor(p.y() + 0.5))))
    return std::nullopt;
  double sum = 0.0, weights = 0.0;
  for (int row = 0; row < image.height(); ++row) {
    const double below = std::max(0.0, 1.0 - std::abs(p.y() - row));
    if (below == 0.0) continue;
    for (int column = 0; column < image.width(); ++column) {
      const double weight = below * std::max(0.0, 1.0 - std::abs(p.x() - column));
      if (weight == 0.0 || !isValid(column, row)) continue;
      sum += weight * image.valueAsDouble(column, row, slice, channel);
      weights += weight;
    }
  }
  return sum / weights;
}

bool isBetweenPixels(const MemImage& image, const Eigen::Vector2d& uv, double tolerance) {
  const Eigen::Vector2d p = pixelPosition(image, uv);
  return ((p.array() - p.array().floor() - 0.5).abs() < tolerance).any();
}

} // namespace Kelvaris::US::Tests
