#pragma once

#include "Lib/MemImage.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <type_traits>

namespace Kelvaris::Tests {

template <typename F> void forEachSample(const ImageDescriptor& d, F&& f) {
  for (int z = 0; z < d.slices(); ++z)
    for (int y = 0; y < d.height(); ++y)
      for (int x = 0; x < d.width(); ++x)
        for (int channel = 0; channel < d.channels(); ++channel)
          f(x, y, z, channel);
}

/// An image of the values f(x, y, z, channel).
template <typename F> std::shared_ptr<MemImage> imageOf(const ImageDescriptor& descriptor, F&& f) {
  std::shared_ptr<MemImage> image = MemImage::create(descriptor);
  dispatchPixelType(descriptor.pixelType(), [&]<typename T>() {
    T* sample = static_cast<T*>(image->data());
    forEachSample(descriptor,
                  [&](int x, int y, int z, int channel) { *sample++ = static_cast<T>(f(x, y, z, channel)); });
  });
  return image;
}

/// What the pixel type keeps of a value: integers are rounded half away from zero and clamped.
inline double stored(double value, int pixelType) {
  dispatchPixelType(pixelType, [&]<typename T>() {
    if constexpr (std::is_integral_v<T>)
      value = std::clamp(std::round(value), static_cast<double>(std::numeric_limits<T>::lowest()),
                         static_cast<double>(std::numeric_limits<T>::max()));
  });
  return value;
}

/// Evenly distributed values from -100, or 0 for unsigned types, to 100.
inline std::shared_ptr<MemImage> noiseImage(const ImageDescriptor& descriptor, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> uniform(stored(-100.0, descriptor.pixelType()), 100.0);
  return imageOf(descriptor, [&](int, int, int, int) { return uniform(random); });
}

/// Equal, or both NaN.
inline bool isSame(double a, double b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

/// The largest difference between the image and f(x, y, z, channel); NaN differs from NaN by 0, and from all else by
/// infinity.
template <typename F> double worstError(const MemImage& image, F&& f) {
  double worst = 0.0;
  forEachSample(image.descriptor(), [&](int x, int y, int z, int channel) {
    const double value = image.valueAsDouble(x, y, z, channel), expected = f(x, y, z, channel);
    if (isSame(value, expected)) return;
    const double error = std::abs(value - expected);
    worst = std::max(worst, std::isnan(error) ? std::numeric_limits<double>::infinity() : error);
  });
  return worst;
}

} // namespace Kelvaris::Tests
