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

// The first terms left out are (pi/2)^13 / 13! = 6e-8 of the sine, less of the cosine, and 0.2^10 / 11 = 1e-8 of the
// angle.
const char* const kShaderText = R"(
vec2 @Turn(float t) {
  float h = 0.5 * t;
  float q = h * h;
  float s = h * (1.0 + q * (-1.0 / 6.0 + q * (1.0 / 120.0 + q * (-1.0 / 5040.0 + q * (1.0 / 362880.0 - q / 39916800.0)))));
  float c = 1.0 + q * (-0.5 + q * (1.0 / 24.0 + q * (-1.0 / 720.0 +
                  q * (1.0 / 40320.0 + q * (-1.0 / 3628800.0 + q / 479001600.0)))));
  return vec2(2.0 * s * c, 2.0 * s * s);
}
float @Angle(vec2 d) {
  float r = length(d);
  float w = d.y >= 0.0 ? d.x / (r + d.y) : (r - d.y) / d.x;
  for (int i = 0; i < 3; ++i)
    w = w / (1.0 + sqrt(1.0 + w * w));
  float q = w * w;
  return 16.0 * w * (1.0 + q * (-1.0 / 3.0 + q * (1.0 / 5.0 + q * (-1.0 / 7.0 + q / 9.0))));
}
vec2 @Undefined() {
  return vec2(uintBitsToFloat(0x7FC00000u));
}
float @Power(vec2 p, float radius) {
  return p.x * p.x + p.y * (p.y + 2.0 * radius);
}
)";

} // namespace Kelvaris::US::FanMath
