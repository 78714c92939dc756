#pragma once

#include "Lib/MemImage.h"

#include <Eigen/Core>

#include <functional>
#include <optional>
#include <vector>

/// Scan conversion once more, in double precision and without the code under test: only the formula that puts (u, v)
/// into the frame is given, and it is inverted by search.
namespace Kelvaris::US::Tests {

using FramePosition = std::function<Eigen::Vector2d(double u, double v)>;

/// The pre-scan image's normalised coordinates of a point of the plane, to 1e-12; nothing for a point that is far
/// outside.
class FrameInverse {
public:
  explicit FrameInverse(FramePosition position);
  std::optional<Eigen::Vector2d> operator()(const Eigen::Vector2d& point) const;

private:
  FramePosition m_position;
  std::vector<std::pair<Eigen::Vector2d, Eigen::Vector2d>> m_starts; ///< (u, v) and its point
};

/// The smallest box around the frame, (left, top) and (right, bottom), from points along its border.
std::pair<Eigen::Vector2d, Eigen::Vector2d> frameBox(const FramePosition& position);

/// Bilinear between pixel centres, clamped at the edges, invalid pixels left out and the weights scaled. Nothing where
/// the nearest pixel is invalid. `uv` lies in [0, 1] x [0, 1].
std::optional<double> sampleBilinear(const MemImage& image, const Eigen::Vector2d& uv, int slice, int channel,
                                     const std::function<bool(int column, int row)>& isValid);

/// True where a rounding decides which pixel is the nearest.
bool isBetweenPixels(const MemImage& image, const Eigen::Vector2d& uv, double tolerance);

} // namespace Kelvaris::US::Tests
