#include "US/FanMath.h"

#include <cmath>
#include <numbers>

namespace Kelvaris::US::FanMath {

double radians(double degrees) {
  return degrees * (std::numbers::pi / 180.0);
}

Eigen::Vector2d onArc(double radius, double t) {
  const double s = std::sin(0.5 * t);
  return {radius * std::sin(t), -2.0 * radius * s * s};
}

double power(double radius, double x, double y) {
  return x * x + y * (y + 2.0 * radius);
}

double beyondArc(double radius, double x, double y) {
  return power(radius, x, y) / (std::hypot(x, y + radius) + radius);
}

std::vector<double> extremeAngles(double from, double to) {
  if (!std::isfinite(from) || !std::isfinite(to)) return {};
  constexpr double rightAngle = 0.5 * std::numbers::pi;
  std::vector<double> angles = {from, to};
  // Four right angles on from the first see every direction.
  const double first = std::ceil(from / rightAngle);
  for (int i = 0; i < 4 && (first + i) * rightAngle <= to; ++i)
    angles.push_back((first + i) * rightAngle);
  return angles;
}

} // namespace Kelvaris::US::FanMath
