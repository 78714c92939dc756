#pragma once

#include "Lib/PendingFile.h"
#include "Lib/SharedImage.h"

#include <Eigen/Core>

#include <filesystem>
#include <optional>

namespace Kelvaris::PngWriter {

/// Throws std::invalid_argument, saying what to do, unless images like this can be stored: uint8 with 1 (gray), 3 (RGB)
/// or 4 (RGBA) channels.
void checkSupported(const ImageDescriptor& descriptor);

/// Writes one slice as PNG to the temporary name of `file`; row 0 is the top. Gray images with a mask get an alpha
/// channel, in which masked pixels are transparent. The physical pixel size (pHYs) is `pixelSize`, width and height in
/// mm (zeros: not stored), without it the image's spacing if that is metric.
/// Throws std::invalid_argument as checkSupported, std::out_of_range for a slice that isn't there and
/// std::runtime_error if the file can't be written.
void write(const PendingFile& file, const SharedImage& image, int slice = 0,
           const std::optional<Eigen::Vector2d>& pixelSize = {});

} // namespace Kelvaris::PngWriter
