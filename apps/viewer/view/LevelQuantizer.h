#pragma once

#include "viewer/view/DisplayMapping.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Kelvaris::Viewer {

/// DisplayMapping::level() of a linear mapping, for many values.
class LinearQuantizer {
public:
  explicit LinearQuantizer(const DisplayMapping& mapping) : m_low(mapping.low), m_slope(255.0 / mapping.width()) {}

  unsigned char operator()(double value) const {
    double level = (value - m_low) * m_slope;
    level = level > 0.0 ? level : 0.0;
    return static_cast<unsigned char>((level < 255.0 ? level : 255.0) + 0.5);
  }

private:
  double m_low, m_slope;
};

/// DisplayMapping::level() of a mapping in decibels, for many squared magnitudes, without a logarithm for each: a table
/// over the exponent and the first bits of the mantissa tells a level, and the squared magnitudes from which on the
/// levels hold correct it.
class DecibelQuantizer {
public:
  explicit DecibelQuantizer(const DisplayMapping& mapping);

  /// `power` is not negative; NaN gives any level.
  unsigned char operator()(double power) const {
    const std::int64_t bucket = bucketOf(power) - m_firstBucket;
    if (bucket < 0) return 0;
    if (bucket >= static_cast<std::int64_t>(m_levels.size())) return 255;
    unsigned level = m_levels[static_cast<std::size_t>(bucket)];
    while (level < 255 && power >= m_from[level + 1])
      ++level;
    return static_cast<unsigned char>(level);
  }

private:
  /// Sign, exponent and seven bits of the mantissa: buckets are 2^(1/88) to 2^(1/128) wide.
  static constexpr int kDroppedBits = 45;
  static std::int64_t bucketOf(double power) {
    std::int64_t bits;
    std::memcpy(&bits, &power, sizeof bits);
    return bits >> kDroppedBits;
  }

  std::array<double, 256> m_from; ///< smallest squared magnitude of each level
  std::int64_t m_firstBucket;
  std::vector<unsigned char> m_levels; ///< of the smallest squared magnitude of each bucket
};

} // namespace Kelvaris::Viewer
