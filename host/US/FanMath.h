#pragma once

#include <Eigen/Core>

#include <vector>

/// What the frame geometries with lines that fan out have in common. A direction at angle t (radians, from the y axis
/// towards positive x) is (sin t, cos t); the fan's apex lies at (0, -radius), so that the arc of that radius touches
/// the origin.
namespace Kelvaris::US::FanMath {

double radians(double degrees);

/// The point of the arc of `radius` at angle t: (radius sin t, radius cos t - radius), without the cancellation in y.
Eigen::Vector2d onArc(double radius, double t);

/// Power of (x, y) with respect to the arc's circle, the squared distance from the apex less radius^2: x^2 + y (y + 2
/// radius).
double power(double radius, double x, double y);

/// Distance of (x, y) from the arc along the line through the apex, negative inside: (r^2 - radius^2) / (r + radius).
double beyondArc(double radius, double x, double y);

/// All angles in [from, to] where a point that goes round a circle can be at its extreme in x or y: the multiples of a
/// right angle, and both ends. Empty if an end isn't finite.
std::vector<double> extremeAngles(double from, double to);

/// GLSL for the same, with '@' for the prefix. Written out, as the language promises little about the accuracy of its
/// own sine and arc tangent:
///   vec2 @Turn(float t)         (sin t, 1 - cos t) for |t| up to pi, from the power series at t / 2, where
///                               sin t = 2 s c and 1 - cos t = 2 s^2
///   float @Angle(vec2 d)        the angle of direction d, from tan(t / 2) = x / (r + y), halved three times more by
///                               tan(t / 2) = tan t / (1 + sqrt(1 + tan^2 t)) and then summed as the arc tangent's
///                               series
///   float @Power(vec2 p, float radius)
///   vec2 @Undefined()           NaN
extern const char* const kShaderText;

} // namespace Kelvaris::US::FanMath
