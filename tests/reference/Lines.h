#pragma once

#include "Lib/MemImage.h"

#include <algorithm>
#include <cmath>

/// Convolution and interpolation of images, in double precision and sample by sample.
namespace Kelvaris::Tests {

/// sum_k kernel(k) image(at + taps / 2 - k) along `axis`; beyond the line's ends are zeros or, with `hasEdges`, its end
/// values.
inline double convolved(const MemImage& image, const TypedImage<float>& kernel, int axis, bool hasEdges,
                        Eigen::Vector3i at, int channel) {
  const int taps = static_cast<int>(kernel.size()), extent = image.descriptor().dimensions()[axis], c = at[axis];
  double sum = 0.0;
  for (int k = 0; k < taps; ++k) {
    at[axis] = std::clamp(c + taps / 2 - k, 0, extent - 1);
    if (hasEdges || at[axis] == c + taps / 2 - k)
      sum += static_cast<double>(kernel[static_cast<std::size_t>(k)]) *
             image.valueAsDouble(at.x(), at.y(), at.z(), channel);
  }
  return sum;
}

/// Between the samples around `place` (sample i lies at i); outside the image its edge.
inline double interpolated(const MemImage& image, const Eigen::Vector3d& place, int channel) {
  const Eigen::Vector3i last = image.descriptor().dimensions() - Eigen::Vector3i::Ones();
  const Eigen::Vector3d inside = place.cwiseMax(0.0).cwiseMin(last.cast<double>());
  const Eigen::Vector3i below = inside.array().floor().cast<int>(),
                        first = below.cwiseMin(last - Eigen::Vector3i::Ones()).cwiseMax(0);
  double sum = 0.0;
  for (int corner = 0; corner < 8; ++corner) {
    const Eigen::Vector3i at = first + Eigen::Vector3i(corner & 1, corner >> 1 & 1, corner >> 2);
    if ((at.array() > last.array()).any()) continue; // an axis of one sample
    const Eigen::Vector3d share = Eigen::Vector3d::Ones() - (inside - at.cast<double>()).cwiseAbs();
    sum += share.prod() * image.valueAsDouble(at.x(), at.y(), at.z(), channel);
  }
  return sum;
}

/// Where sample `at` of an image of extent `to`, made of one of extent `from` over the same ground, lies in that one.
inline Eigen::Vector3d placeIn(const Eigen::Vector3i& from, const Eigen::Vector3i& to, const Eigen::Vector3i& at) {
  const Eigen::Vector3d half = Eigen::Vector3d::Constant(0.5);
  return (at.cast<double>() + half).cwiseProduct(from.cast<double>()).cwiseQuotient(to.cast<double>()) - half;
}

} // namespace Kelvaris::Tests
