#pragma once

#include "Lib/ImageDescriptor.h"

#include <optional>
#include <vector>

namespace Kelvaris::ImageMath::internal {

/// The common descriptor of several operands. Invalid ones (of numbers) don't count; without any other the result is
/// invalid, too.
///
/// The extent is the largest along each axis, so that small images, which are read with a coordinate mapping, follow a
/// large one. Spacing, metric flag, shift and scale are those of the first operand of that extent, if there is one,
/// else of the first operand; with `normalize`, shift is 0 and scale 1. Without a `pixelType`, it is the one that all
/// have in common, else double if one is double or 32-bit integer, else float. Throws std::invalid_argument if channels
/// differ and neither is 1.
ImageDescriptor combineImageDescriptors(const std::vector<ImageDescriptor>& descriptors, bool normalize,
                                        std::optional<PixelType> pixelType);

} // namespace Kelvaris::ImageMath::internal
