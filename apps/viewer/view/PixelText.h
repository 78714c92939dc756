#pragma once

#include "viewer/view/Contents.h"

#include <QString>

namespace Kelvaris {
class Mask;
class MemImage;
} // namespace Kelvaris

namespace Kelvaris::Viewer {

/// The samples of a pixel in words: "123", "-12.5 dB", "I 3, Q -4, magnitude 5 (13.98 dB)", "red 1, green 2, blue 3",
/// with the stored value where that is another, or "masked". `mask` may be null. The pixel must be there.
QString pixelText(const MemImage& image, const Mask* mask, Contents contents, int x, int y, int slice);

} // namespace Kelvaris::Viewer
