#pragma once

#include "Lib/DataComponent.h"

namespace Kelvaris::US {

/// The components of a decibel image of `pixelType` (PixelUInt8 or PixelFloat), from those of the image that it was
/// made of: in a frame geometry, both image descriptors that are valid get the pixel type and one channel. Extent and
/// spacing stay, also where the image's own have changed.
DataComponentList decibelComponents(DataComponentList components, int pixelType);

} // namespace Kelvaris::US
