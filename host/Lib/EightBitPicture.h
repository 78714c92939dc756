#pragma once

#include "Lib/ImageDescriptor.h"

#include <Eigen/Core>

#include <optional>
#include <vector>

namespace Kelvaris {

/// A slice of 8-bit samples as a picture shows it: row 0 is the top, and pixels whose size is known but whose sides
/// differ are brought to squares of the shorter side. Values between pixel centres are interpolated linearly, the
/// picture keeps its centre and, within half a pixel, its extent. What is masked follows the nearest pixel, and masked
/// pixels take no part in the values of others.
class EightBitPicture {
public:
  /// The samples belong to others and must outlive the picture.
  struct Slice {
    const unsigned char* samples; ///< component by component, row by row
    int width, height, channels;
    const unsigned char* valid = nullptr; ///< 1 for a valid, 0 for a masked pixel, row by row; null: all are valid
  };

  /// Of the image's pixels in mm: what is given, otherwise the spacing if that is metric. Zeros where it is not known
  /// or no picture can have such pixels.
  static Eigen::Vector2d pixelSize(const ImageDescriptor& descriptor, const std::optional<Eigen::Vector2d>& given);

  /// `pixelSize` as pixelSize() gives it. Throws std::invalid_argument for square pixels that would make an enormous
  /// picture.
  EightBitPicture(const Slice& slice, const Eigen::Vector2d& pixelSize, bool squarePixels);

  int width() const { return static_cast<int>(m_x.size()); }
  int height() const { return static_cast<int>(m_y.size()); }
  int channels() const { return m_slice.channels; }
  bool hasMask() const { return m_slice.valid != nullptr; }
  /// Of the picture's pixels, in mm; zeros if not known.
  const Eigen::Vector2d& pixelSize() const { return m_pixelSize; }
  /// Distance between two pixels of the picture in pixels of the slice; 1 along both axes unless there are squares.
  const Eigen::Vector2d& step() const { return m_step; }

  /// Writes the samples of row `j`, width() x channels() bytes; a masked pixel has those of the nearest pixel. Where
  /// hasMask(), also 1 for a valid and 0 for a masked pixel, width() bytes. May run on several threads at once.
  void row(int j, unsigned char* samples, unsigned char* valid) const;

private:
  /// Where a pixel of the picture lies along one axis of the slice: between pixel `first` and `second`, the one behind
  /// it, `fraction` of the way, from 0 to below 1.
  struct Position {
    int first, second;
    double fraction;
  };
  static std::vector<Position> positions(int size, int sliceSize, double step);

  Slice m_slice;
  Eigen::Vector2d m_pixelSize;
  Eigen::Vector2d m_step = Eigen::Vector2d::Ones();
  std::vector<Position> m_x, m_y;
};

} // namespace Kelvaris
