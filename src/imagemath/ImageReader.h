#pragma once

#include "Lib/Mask.h"
#include "Lib/MemImage.h"
#include "imagemath/ArrayAccess.h"
#include "imagemath/Block.h"

#include <memory>

namespace Kelvaris::ImageMath::internal {

/// Reads an image in main memory for blocks of pixels.
class ImageReader {
public:
  ImageReader(std::shared_ptr<const MemImage> image, const ArrayAccess& access);

  /// One value for each pixel of the block: sample / scale - shift, or the sample itself if the access is raw. An image
  /// of one channel has the same one for all. V is float or double.
  template <typename V> void read(const Block& block, int channel, V* values) const;
  /// 1 for pixels that the mask of the image calls valid, 0 for others, those on the border included.
  void readMask(const Mask& mask, const Block& block, double* values) const;

private:
  std::shared_ptr<const MemImage> m_image;
  ArrayAccess m_access;
};

} // namespace Kelvaris::ImageMath::internal
