#include "viewer/view/SlicePicture.h"

#include <cmath>
#include <stdexcept>

namespace Kelvaris::Viewer {

SlicePicture::SlicePicture(LevelSlice slice, const Eigen::Vector2d& pixelSize)
    : m_slice(std::move(slice)), m_pixelSize(pixelSize) {
  try {
    eightBit(true);
    m_squares = true;
  } catch (const std::invalid_argument&) {
    m_pixelSize.setZero();
  }
}

EightBitPicture SlicePicture::eightBit(bool squarePixels) const {
  return {m_slice.view(), m_pixelSize, squarePixels};
}

Eigen::Vector2d SlicePicture::step() const {
  return isNull() ? Eigen::Vector2d::Ones() : Eigen::Vector2d(eightBit(m_squares).step());
}

QSize SlicePicture::size() const {
  if (isNull()) return {};
  const EightBitPicture picture = eightBit(m_squares);
  return {picture.width(), picture.height()};
}

void SlicePicture::setColors(const ColorMap& map, const std::optional<QColor>& maskColor) {
  m_map = &map;
  m_maskColor = maskColor;
  m_samples = m_picture = QImage();
}

const QImage& SlicePicture::samples() const {
  if (m_samples.isNull() && !isNull()) {
    m_samples = rendered(eightBit(false));
    if (m_samples.hasAlphaChannel())
      m_samples = std::move(m_samples).convertToFormat(QImage::Format_ARGB32_Premultiplied);
  }
  return m_samples;
}

const QImage& SlicePicture::picture() const {
  if (m_picture.isNull() && !isNull()) m_picture = rendered(eightBit(m_squares));
  return m_picture;
}

QImage SlicePicture::rendered(const EightBitPicture& picture) const {
  const int channels = picture.channels();
  const bool hasAlpha = channels == 4 || (picture.hasMask() && !m_maskColor);
  QImage image(picture.width(), picture.height(), hasAlpha ? QImage::Format_ARGB32 : QImage::Format_RGB32);
  if (image.isNull()) return image;
  if (picture.pixelSize().minCoeff() > 0.0) { // so that a saved picture tells its size
    image.setDotsPerMeterX(static_cast<int>(std::lround(1000.0 / picture.pixelSize().x())));
    image.setDotsPerMeterY(static_cast<int>(std::lround(1000.0 / picture.pixelSize().y())));
  }
  const auto width = static_cast<std::size_t>(picture.width());
  std::vector<unsigned char> samples(width * static_cast<std::size_t>(channels)), valid(width, 1);
  const QRgb masked = m_maskColor ? m_maskColor->rgb() : 0;
  for (int y = 0; y < picture.height(); ++y) {
    picture.row(y, samples.data(), valid.data());
    auto* pixels = reinterpret_cast<QRgb*>(image.scanLine(y));
    const unsigned char* sample = samples.data();
    for (std::size_t x = 0; x < width; ++x, sample += channels)
      pixels[x] = channels == 1   ? (*m_map)[*sample]
                  : channels == 3 ? qRgb(sample[0], sample[1], sample[2])
                                  : qRgba(sample[0], sample[1], sample[2], sample[3]);
    if (picture.hasMask())
      for (std::size_t x = 0; x < width; ++x)
        if (!valid[x]) pixels[x] = m_maskColor ? masked : pixels[x] & 0x00ffffffU;
  }
  return image;
}

} // namespace Kelvaris::Viewer
