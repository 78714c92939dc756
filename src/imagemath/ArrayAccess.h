#pragma once

#include <Eigen/Core>

#include <optional>

namespace Kelvaris::ImageMath::internal {

inline constexpr unsigned kNearest = 9728;        ///< GL_NEAREST
inline constexpr unsigned kLinear = 9729;         ///< GL_LINEAR
inline constexpr unsigned kClampToEdge = 33071;   ///< GL_CLAMP_TO_EDGE
inline constexpr unsigned kClampToBorder = 33069; ///< GL_CLAMP_TO_BORDER

/// Which sample of its image a leaf reads at a pixel, and how.
struct ArrayAccess {
  bool mapped = false; ///< false: the sample at the pixel itself, and only filter and raw count
  Eigen::Vector3i offset = Eigen::Vector3i::Zero();
  Eigen::Vector3i axes = {0, 1, 2};
  unsigned magFilter = kNearest;
  unsigned wrap = kClampToEdge;
  Eigen::Vector4f border = Eigen::Vector4f::Zero();
  bool raw = false; ///< samples as they are stored

  /// Throws std::invalid_argument unless `axes` is a permutation of 0, 1, 2.
  void checkAxes() const;
  void checkFilter() const; ///< throws std::invalid_argument unless it is one of those above
  void checkWrap() const;   ///< the same

  /// Where in an image of this extent the sample for `pixel` lies; nothing for the border.
  std::optional<Eigen::Vector3i> position(const Eigen::Vector3i& pixel, const Eigen::Vector3i& extent) const {
    if (!mapped) return pixel;
    const Eigen::Vector3i moved = pixel + offset;
    const Eigen::Vector3i wanted(moved[axes[0]], moved[axes[1]], moved[axes[2]]);
    const Eigen::Vector3i inside = wanted.cwiseMax(0).cwiseMin(extent - Eigen::Vector3i::Ones());
    if (wrap == kClampToBorder && inside != wanted) return std::nullopt;
    return inside;
  }
};

} // namespace Kelvaris::ImageMath::internal
