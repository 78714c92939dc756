#include "viewer/view/Contents.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

namespace Kelvaris::Viewer {
namespace {

using Law = DisplayMapping::Law;

constexpr double kShownDecibels = 60.0, kAllDecibels = 120.0;

/// A window of no width would have no levels.
DisplayMapping window(double low, double high) {
  DisplayMapping mapping{.law = Law::Linear, .low = low, .high = high};
  const double least = 1e-9 * std::max({std::abs(low), std::abs(high), 1e-9});
  if (!(mapping.width() > least)) mapping.setCenterAndWidth(low, std::max(1.0, std::abs(low)));
  return mapping;
}

DisplayMapping belowLargest(double decibels, const SliceStatistics& statistics) {
  const double largest = std::max(std::abs(statistics.least()), std::abs(statistics.most()));
  const double top = largest > 0.0 ? 20.0 * std::log10(largest) : 0.0;
  return {.law = Law::Decibels, .low = top - decibels, .high = top};
}

} // namespace

Contents contentsOf(const ImageDescriptor& d, const SliceStatistics& statistics) {
  if (isColor(d)) return Contents::Color;
  if (d.channels() > 1) return Contents::Iq;
  if (d.pixelType() == PixelUInt8) return Contents::Levels;
  if (statistics.least() >= 0.0) return Contents::Amplitude;
  const bool isFloating = d.pixelType() == PixelFloat || d.pixelType() == PixelDouble || d.pixelType() == PixelHalf;
  return isFloating && statistics.most() <= 0.0 ? Contents::Decibels : Contents::Signal;
}

DisplayMapping firstMapping(Contents contents, const SliceStatistics& statistics) {
  switch (contents) {
  case Contents::Levels:
  case Contents::Color:
    return {};
  case Contents::Decibels:
    return window(statistics.least(), 0.0);
  case Contents::Iq:
  case Contents::Amplitude:
    return automaticMapping(Law::Decibels, contents, statistics);
  case Contents::Signal:
    break;
  }
  return automaticMapping(Law::Linear, contents, statistics);
}

DisplayMapping automaticMapping(Law law, Contents contents, const SliceStatistics& statistics) {
  if (law == Law::Decibels) return belowLargest(kShownDecibels, statistics);
  if (contents == Contents::Signal) {
    const double largest = statistics.absoluteQuantile(0.995);
    return largest > 0.0 ? window(-largest, largest) : window(statistics.least(), statistics.most());
  }
  return window(statistics.quantile(0.005), statistics.quantile(0.995));
}

DisplayMapping fullMapping(Law law, const ImageDescriptor& d, const SliceStatistics& statistics) {
  if (law == Law::Decibels) return belowLargest(kAllDecibels, statistics);
  double low = statistics.least(), high = statistics.most();
  if (d.channels() == 1)
    dispatchPixelType(d.pixelType(), [&]<typename T>() {
      if constexpr (std::is_integral_v<T>) {
        low = static_cast<double>(std::numeric_limits<T>::min()) / d.scale() - d.shift();
        high = static_cast<double>(std::numeric_limits<T>::max()) / d.scale() - d.shift();
      }
    });
  return window(std::min(low, high), std::max(low, high));
}

} // namespace Kelvaris::Viewer
