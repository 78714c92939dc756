#include "gpu/ElementSearch.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace Kelvaris::US::GPU {
namespace {

using CUDA::float3;

/// Largest deviation, as a part of the spacing, with which the windows stay small.
constexpr double acceptedDeviation = 1e-3;
/// Added to deviations: what underflowing squares can hide, and rounding of the model itself to float.
double padded(double deviation, double size) {
  return deviation + 1e-6 * size;
}

} // namespace

ElementSearch ElementSearch::fit(std::span<const float3> positions) {
  const std::size_t n = positions.size();
  const bool planar = std::all_of(positions.begin(), positions.end(), [](const float3& p) {
    return p.z == 0.0f && std::isfinite(p.x) && std::isfinite(p.y) && std::abs(p.x) < 1e6f && std::abs(p.y) < 1e6f;
  });
  if (n < 8 || !planar) return {};

  struct Vector {
    double x, y;
  };
  const auto at = [&](std::size_t i) { return Vector{positions[i].x, positions[i].y}; };
  const Vector begin = at(0), middle = at(n / 2), end = at(n - 1);
  const double length = std::hypot(end.x - begin.x, end.y - begin.y);
  if (!(length > 1e-6)) return {};
  double size = 0;
  for (std::size_t i = 0; i < n; ++i)
    size = std::max({size, std::abs(at(i).x), std::abs(at(i).y)});

  ElementSearch line;
  line.model = Model::Line;
  line.origin = positions.empty() ? CUDA::float2{} : CUDA::float2{positions[0].x, positions[0].y};
  line.direction = {static_cast<float>((end.x - begin.x) / length), static_cast<float>((end.y - begin.y) / length)};
  const double spacing = length / static_cast<double>(n - 1);
  line.spacing = static_cast<float>(spacing);
  double deviation = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const double along = static_cast<double>(i) * line.spacing;
    deviation = std::max(deviation, std::hypot(at(i).x - (line.origin.x + along * line.direction.x),
                                               at(i).y - (line.origin.y + along * line.direction.y)));
  }
  line.deviation = static_cast<float>(padded(deviation, size));
  if (line.deviation < acceptedDeviation * spacing) return line;

  // The circle through the first, the middle and the last element.
  const double bx = middle.x - begin.x, by = middle.y - begin.y, cx = end.x - begin.x, cy = end.y - begin.y;
  const double d = 2 * (bx * cy - by * cx);
  if (std::abs(d) < 1e-9 * length * length) return {};
  const double ux = (cy * (bx * bx + by * by) - by * (cx * cx + cy * cy)) / d;
  const double uy = (bx * (cx * cx + cy * cy) - cx * (bx * bx + by * by)) / d;
  ElementSearch arc;
  arc.model = Model::Arc;
  arc.origin = {static_cast<float>(begin.x + ux), static_cast<float>(begin.y + uy)};
  const double radius = std::hypot(begin.x - arc.origin.x, begin.y - arc.origin.y);
  const auto fromCenter = [&](std::size_t i) { return Vector{at(i).x - arc.origin.x, at(i).y - arc.origin.y}; };
  // The direction to the arc's middle, between the two middle elements if their number is even.
  const Vector m0 = fromCenter((n - 1) / 2), m1 = fromCenter(n / 2);
  const double norm = std::hypot(m0.x + m1.x, m0.y + m1.y);
  arc.direction = {static_cast<float>((m0.x + m1.x) / norm), static_cast<float>((m0.y + m1.y) / norm)};
  const auto angle = [&](std::size_t i) {
    const Vector v = fromCenter(i);
    return std::atan2(v.x * arc.direction.y - v.y * arc.direction.x, v.x * arc.direction.x + v.y * arc.direction.y);
  };
  const double step = (angle(n - 1) - angle(0)) / static_cast<double>(n - 1);
  arc.first = static_cast<float>(angle(0));
  arc.spacing = static_cast<float>(step);
  arc.radius = static_cast<float>(radius);
  deviation = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const double a = arc.first + static_cast<double>(i) * arc.spacing;
    const double across = arc.radius * std::sin(a), forward = arc.radius * std::cos(a);
    // (across, forward) in the frame whose second axis is `direction`.
    const double x = arc.origin.x + across * arc.direction.y + forward * arc.direction.x;
    const double y = arc.origin.y - across * arc.direction.x + forward * arc.direction.y;
    deviation = std::max(deviation, std::hypot(at(i).x - x, at(i).y - y));
  }
  arc.deviation = static_cast<float>(padded(deviation, std::max(size, radius)));
  const bool accepted = arc.deviation < acceptedDeviation * std::abs(step) * radius && std::abs(step) < 0.1 &&
                        std::abs(step) * static_cast<double>(n - 1) < 3 && radius < 1e6;
  return accepted ? arc : ElementSearch{};
}

} // namespace Kelvaris::US::GPU
