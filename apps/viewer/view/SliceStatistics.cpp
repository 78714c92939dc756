#include "viewer/view/SliceStatistics.h"

#include "Lib/Mask.h"
#include "Lib/MemImage.h"

#include <algorithm>
#include <cmath>

namespace Kelvaris::Viewer {
namespace {

constexpr std::size_t kSampleSize = 32768;

double quantileOf(std::vector<double> values, double share) {
  if (values.empty()) return 0.0;
  const auto place = values.begin() + std::lround(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

} // namespace

SliceStatistics::SliceStatistics(const MemImage& image, const Mask* mask, int slice) {
  const ImageDescriptor& d = image.descriptor();
  const auto width = static_cast<std::size_t>(d.width()), channels = static_cast<std::size_t>(d.channels());
  std::vector<unsigned char> valid(width, 1);
  std::vector<double> values;
  dispatchPixelType(d.pixelType(), [&]<typename T>() {
    for (int y = 0; y < d.height(); ++y) {
      if (mask) mask->evaluate(image, 0, y, slice, d.width(), valid.data());
      const T* sample = static_cast<const T*>(image.data()) + image.index(0, y, slice, 0);
      for (std::size_t x = 0; x < width; ++x, sample += channels) {
        double value = static_cast<double>(sample[0]) / d.scale() - d.shift();
        if (channels > 1) {
          double power = 0.0;
          for (std::size_t channel = 0; channel < channels; ++channel) {
            const double component = static_cast<double>(sample[channel]) / d.scale() - d.shift();
            power += component * component;
          }
          value = std::sqrt(power);
        }
        if (valid[x] && std::isfinite(value)) values.push_back(value);
      }
    }
  });
  if (values.empty()) return;
  const auto [least, most] = std::minmax_element(values.begin(), values.end());
  m_least = *least;
  m_most = *most;
  // A step without a common divisor with usual widths, so that no column is preferred.
  std::size_t step = values.size() / kSampleSize + 1;
  if (step > 1) step |= 1;
  for (std::size_t i = 0; i < values.size(); i += step)
    m_sample.push_back(values[i]);
}

double SliceStatistics::quantile(double share) const {
  return quantileOf(m_sample, share);
}

double SliceStatistics::absoluteQuantile(double share) const {
  std::vector<double> values = m_sample;
  for (double& value : values)
    value = std::abs(value);
  return quantileOf(std::move(values), share);
}

} // namespace Kelvaris::Viewer
