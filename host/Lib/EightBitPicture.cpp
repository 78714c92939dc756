#include "Lib/EightBitPicture.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

namespace Kelvaris {
namespace {

/// Longest side that square pixels may make of a picture.
constexpr double kLongestSide = 32768.0;

/// A PNG tells the size of its pixels as whole pixels per metre in 31 bits.
constexpr double kShortestPixel = 1000.0 / 2147483647.0, kLongestPixel = 2000.0; // mm

Eigen::Vector2i sizeInSquares(const Eigen::Vector2i& size, const Eigen::Vector2d& pixelSize) {
  const double side = pixelSize.minCoeff();
  const Eigen::Vector2d squares = (size.cast<double>().cwiseProduct(pixelSize) / side).array().round();
  if (squares.maxCoeff() > std::max<double>(kLongestSide, size.maxCoeff()))
    throw std::invalid_argument(
        fmt::format("Pixels of {:.6g} x {:.6g} mm would make {:.0f} x {:.0f} square ones, a side may have {:.0f}: "
                    "write them as they are",
                    pixelSize.x(), pixelSize.y(), squares.x(), squares.y(), kLongestSide));
  return squares.cast<int>();
}

} // namespace

Eigen::Vector2d EightBitPicture::pixelSize(const ImageDescriptor& descriptor,
                                           const std::optional<Eigen::Vector2d>& given) {
  Eigen::Vector2d size = Eigen::Vector2d::Zero();
  if (given)
    size = *given;
  else if (descriptor.isMetric())
    size = descriptor.spacing().head<2>();
  const bool known = size.allFinite() && size.minCoeff() > kShortestPixel && size.maxCoeff() <= kLongestPixel;
  return known ? size : Eigen::Vector2d::Zero();
}

EightBitPicture::EightBitPicture(const Slice& slice, const Eigen::Vector2d& pixelSize, bool squarePixels)
    : m_slice(slice), m_pixelSize(pixelSize) {
  Eigen::Vector2i size(slice.width, slice.height);
  if (squarePixels && m_pixelSize.minCoeff() > 0.0) {
    const Eigen::Vector2i squares = sizeInSquares(size, m_pixelSize);
    if (squares != size) {
      m_step = m_pixelSize.cwiseInverse() * m_pixelSize.minCoeff();
      m_pixelSize.setConstant(m_pixelSize.minCoeff());
      size = squares;
    }
  }
  m_x = positions(size.x(), slice.width, m_step.x());
  m_y = positions(size.y(), slice.height, m_step.y());
}

/// `size` places `step` pixels of the slice apart, around its centre. What lies beyond the outermost pixel centres is
/// moved onto them.
std::vector<EightBitPicture::Position> EightBitPicture::positions(int size, int sliceSize, double step) {
  std::vector<Position> all;
  all.reserve(static_cast<std::size_t>(size));
  for (int i = 0; i < size; ++i) {
    const double place = std::clamp(0.5 * sliceSize + (i + 0.5 - 0.5 * size) * step - 0.5, 0.0, sliceSize - 1.0);
    const int first = static_cast<int>(place);
    all.push_back({first, std::min(first + 1, sliceSize - 1), place - first});
  }
  return all;
}

void EightBitPicture::row(int j, unsigned char* samples, unsigned char* valid) const {
  const Position& y = m_y[static_cast<std::size_t>(j)];
  const auto sliceWidth = static_cast<std::size_t>(m_slice.width),
             channels = static_cast<std::size_t>(m_slice.channels);
  const std::array<std::size_t, 2> rows = {static_cast<std::size_t>(y.first) * sliceWidth,
                                           static_cast<std::size_t>(y.second) * sliceWidth};
  if (m_step == Eigen::Vector2d::Ones()) {
    std::copy_n(m_slice.samples + rows[0] * channels, sliceWidth * channels, samples);
    if (m_slice.valid) std::copy_n(m_slice.valid + rows[0], sliceWidth, valid);
    return;
  }
  for (const Position& x : m_x) {
    const std::array<std::size_t, 4> pixels = {
        rows[0] + static_cast<std::size_t>(x.first), rows[0] + static_cast<std::size_t>(x.second),
        rows[1] + static_cast<std::size_t>(x.first), rows[1] + static_cast<std::size_t>(x.second)};
    std::array<double, 4> weights = {(1.0 - x.fraction) * (1.0 - y.fraction), x.fraction * (1.0 - y.fraction),
                                     (1.0 - x.fraction) * y.fraction, x.fraction * y.fraction};
    if (m_slice.valid) {
      const auto nearest = static_cast<std::size_t>(std::max_element(weights.begin(), weights.end()) - weights.begin());
      *valid = m_slice.valid[pixels[nearest]];
      if (!*valid++) {
        samples = std::copy_n(m_slice.samples + pixels[nearest] * channels, channels, samples);
        continue;
      }
      for (std::size_t i = 0; i < 4; ++i)
        if (!m_slice.valid[pixels[i]]) weights[i] = 0.0;
    }
    const double sum = weights[0] + weights[1] + weights[2] + weights[3];
    for (std::size_t channel = 0; channel < channels; ++channel) {
      double value = 0.0;
      for (std::size_t i = 0; i < 4; ++i)
        value += weights[i] * m_slice.samples[pixels[i] * channels + channel];
      *samples++ = static_cast<unsigned char>(value / sum + 0.5);
    }
  }
}

} // namespace Kelvaris
