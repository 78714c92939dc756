#pragma once

#include "Lib/PendingFile.h"
#include "Lib/SharedImage.h"

#include <Eigen/Core>

#include <array>
#include <filesystem>
#include <optional>

namespace Kelvaris::PngWriter {

/// Red, green, blue.
using Color = std::array<unsigned char, 3>;

struct Options {
  /// Width and height of a pixel in mm; zeros: not known. Without it the image's spacing, if that is metric.
  std::optional<Eigen::Vector2d> pixelSize = {};
  /// Pixels whose size is known but whose sides differ are brought to squares (EightBitPicture).
  bool squarePixels = true;
  /// Of masked pixels; without it they are transparent.
  std::optional<Color> maskColor = {};
};

/// Throws std::invalid_argument, saying what to do, unless images like this can be stored: uint8 with 1 (gray), 3 (RGB)
/// or 4 (RGBA) channels.
void checkSupported(const ImageDescriptor& descriptor);

/// Writes one slice as PNG to the temporary name of `file`; row 0 is the top. An image with a mask gets an alpha
/// channel, or for a mask colour the colours of RGB. The chunk pHYs holds the size of the written pixels, if known.
/// Throws std::invalid_argument as checkSupported and for square pixels that would make an enormous picture,
/// std::out_of_range for a slice that isn't there and std::runtime_error if the file can't be written.
void write(const PendingFile& file, const SharedImage& image, int slice = 0, const Options& options = {});

} // namespace Kelvaris::PngWriter
