#pragma once

#include "Lib/EightBitPicture.h"
#include "viewer/view/DisplayMapping.h"

#include <vector>

namespace Kelvaris {
class Mask;
class MemImage;
} // namespace Kelvaris

namespace Kelvaris::Viewer {

/// One slice of an image in levels of 8 bits, or in colours where it holds those.
struct LevelSlice {
  int width = 0, height = 0;
  int channels = 1;                   ///< 1: levels; 3, 4: red, green, blue and alpha
  std::vector<unsigned char> samples; ///< component by component, row by row
  std::vector<unsigned char> valid;   ///< 1 for a valid pixel, 0 for one that is masked or NaN; empty: all are valid

  EightBitPicture::Slice view() const {
    return {samples.data(), width, height, channels, valid.empty() ? nullptr : valid.data()};
  }
};

/// The levels that the mapping gives the pixels of a slice; colours are copied. `mask` may be null. The slice must be
/// there.
LevelSlice mapSlice(const MemImage& image, const Mask* mask, int slice, const DisplayMapping& mapping);

} // namespace Kelvaris::Viewer
