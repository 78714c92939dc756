#pragma once

#include "Lib/SharedImage.h"

#include <memory>
#include <span>

namespace Kelvaris::US {

/// A new image: Gaussian noise of that standard deviation, for which `frame` is the seed, and then one layer after the
/// other. Integers are rounded half away from zero, and held within their range, as each layer is added. The layers are
/// float images of the image's extent. `strategy` is that of the expressions: 0 evaluates on the processor, 2 by
/// shaders where the pixel type allows; noise has the same bits either way. Throws what images and their conversions
/// throw.
std::unique_ptr<SharedImage> noiseAndLayers(const ImageDescriptor& descriptor, float deviation, int frame,
                                            std::span<const std::shared_ptr<SharedImage>> layers, int strategy);

/// Adds a layer of that extent, of any pixel type, times `amplitude`.
void addLayer(SharedImage& image, const SharedImage& layer, float amplitude, int strategy);

} // namespace Kelvaris::US
