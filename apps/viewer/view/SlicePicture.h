#pragma once

#include "viewer/view/ColorMap.h"
#include "viewer/view/LevelSlice.h"

#include <Eigen/Core>
#include <QColor>
#include <QImage>

#include <optional>

namespace Kelvaris::Viewer {

/// A slice in colours: with one pixel a sample, and as a PNG has it, in square pixels where their size is known.
class SlicePicture {
public:
  SlicePicture() = default; ///< nothing
  /// `pixelSize` in mm; zeros: not known.
  SlicePicture(LevelSlice slice, const Eigen::Vector2d& pixelSize);

  bool isNull() const { return m_slice.samples.empty(); }
  int width() const { return m_slice.width; }
  int height() const { return m_slice.height; }
  bool hasMask() const { return !m_slice.valid.empty(); }
  /// Distance between two pixels of picture() in pixels of the slice.
  Eigen::Vector2d step() const;
  /// Size of picture().
  QSize size() const;

  /// Without a colour, masked pixels are transparent. Colours of images don't go through the map.
  void setColors(const ColorMap& map, const std::optional<QColor>& maskColor);

  /// One pixel a sample; opaque, or premultiplied by alpha. Null where there isn't memory enough, as picture().
  const QImage& samples() const;
  /// Square pixels; opaque, or with alpha (not premultiplied: masked pixels keep the colour of their sample, as in a
  /// PNG). Without square pixels where those would be too many.
  const QImage& picture() const;

private:
  QImage rendered(const EightBitPicture& picture) const;
  EightBitPicture eightBit(bool squarePixels) const;

  LevelSlice m_slice;
  Eigen::Vector2d m_pixelSize = Eigen::Vector2d::Zero();
  bool m_squares = false;
  const ColorMap* m_map = &colorMaps().front();
  std::optional<QColor> m_maskColor;
  mutable QImage m_samples, m_picture; ///< made on demand
};

} // namespace Kelvaris::Viewer
