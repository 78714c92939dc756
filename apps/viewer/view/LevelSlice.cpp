#include "viewer/view/LevelSlice.h"

#include "Lib/Mask.h"
#include "Lib/MemImage.h"
#include "viewer/view/LevelQuantizer.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace Kelvaris::Viewer {
namespace {

/// Real values of the samples of a row, or their squared magnitudes over the components.
class RowValues {
public:
  explicit RowValues(const ImageDescriptor& d)
      : m_channels(static_cast<std::size_t>(d.channels())),
        m_values(static_cast<std::size_t>(d.width())),
        m_shift(d.shift()),
        m_scale(d.scale()),
        m_isReal(d.shift() == 0.0 && d.scale() == 1.0) {}

  template <typename T> const std::vector<double>& values(const T* samples) {
    for (double& value : m_values)
      value = real(static_cast<double>(*samples++));
    return m_values;
  }

  template <typename T> const std::vector<double>& powers(const T* samples) {
    for (double& value : m_values) {
      value = 0.0;
      for (std::size_t channel = 0; channel < m_channels; ++channel) {
        const double component = real(static_cast<double>(*samples++));
        value += component * component;
      }
    }
    return m_values;
  }

private:
  double real(double stored) const { return m_isReal ? stored : stored / m_scale - m_shift; }

  std::size_t m_channels;
  std::vector<double> m_values;
  double m_shift, m_scale;
  bool m_isReal;
};

class Mapper {
public:
  Mapper(const MemImage& image, const Mask* mask, int slice, LevelSlice& result)
      : m_image(image), m_slice(slice), m_result(result) {
    const std::size_t pixels = static_cast<std::size_t>(image.width()) * static_cast<std::size_t>(image.height());
    result.width = image.width();
    result.height = image.height();
    result.channels = isColor(image.descriptor()) ? image.channels() : 1;
    result.samples.resize(pixels * static_cast<std::size_t>(result.channels));
    if (!mask) return;
    result.valid.resize(pixels);
    for (int y = 0; y < image.height(); ++y)
      mask->evaluate(image, 0, y, slice, image.width(), &result.valid[first(y)]);
  }

  template <typename T> void copy() {
    const T* samples = row<T>(0);
    std::copy_n(samples, m_result.samples.size(), m_result.samples.begin());
  }

  template <typename T> void map(const DisplayMapping& mapping) {
    RowValues row(m_image.descriptor());
    const bool single = m_image.channels() == 1;
    if (mapping.law == DisplayMapping::Law::Decibels) {
      const DecibelQuantizer level(mapping);
      eachRow<T>(
          [&](const T* samples) -> auto& { return row.powers(samples); }, level);
    } else if (const LinearQuantizer level(mapping); single) {
      eachRow<T>(
          [&](const T* samples) -> auto& { return row.values(samples); }, level);
    } else {
      eachRow<T>(
          [&](const T* samples) -> auto& { return row.powers(samples); },
          [&](double power) { return level(std::sqrt(power)); });
    }
  }

private:
  std::size_t first(int y) const { return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_image.width()); }

  template <typename T> const T* row(int y) const {
    return static_cast<const T*>(m_image.data()) + m_image.index(0, y, m_slice, 0);
  }

  template <typename T, typename Values, typename Level> void eachRow(const Values& valuesOf, const Level& level) {
    for (int y = 0; y < m_image.height(); ++y) {
      const std::vector<double>& values = valuesOf(row<T>(y));
      std::transform(values.begin(), values.end(), &m_result.samples[first(y)], level);
      if constexpr (std::is_floating_point_v<T>) markNan(values, y);
    }
  }

  void markNan(const std::vector<double>& values, int y) {
    bool any = false;
    for (const double value : values)
      any |= value != value;
    if (!any) return;
    if (m_result.valid.empty()) m_result.valid.assign(m_result.samples.size(), 1);
    unsigned char* valid = &m_result.valid[first(y)];
    for (std::size_t x = 0; x < values.size(); ++x)
      if (std::isnan(values[x])) valid[x] = m_result.samples[first(y) + x] = 0;
  }

  const MemImage& m_image;
  int m_slice;
  LevelSlice& m_result;
};

} // namespace

LevelSlice mapSlice(const MemImage& image, const Mask* mask, int slice, const DisplayMapping& mapping) {
  LevelSlice result;
  Mapper mapper(image, mask, slice, result);
  if (isColor(image.descriptor()))
    mapper.copy<unsigned char>();
  else
    dispatchPixelType(image.descriptor().pixelType(), [&]<typename T>() { mapper.map<T>(mapping); });
  return result;
}

} // namespace Kelvaris::Viewer
