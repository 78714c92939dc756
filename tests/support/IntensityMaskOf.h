#pragma once

#include "Lib/IntensityMask.h"
#include "Lib/SharedImage.h"

namespace Kelvaris {

/// The image's mask. Throws std::bad_cast if it has none or one of another kind.
inline const IntensityMask& intensityMask(const SharedImage& image) {
  return dynamic_cast<const IntensityMask&>(*image.mask());
}

} // namespace Kelvaris
