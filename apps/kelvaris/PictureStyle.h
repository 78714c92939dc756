#pragma once

#include "Lib/PngWriter.h"

#include <optional>
#include <string>

namespace Kelvaris::CommandLine {

/// How pictures (PNG) look, as far as the user decides.
struct PictureStyle {
  std::optional<PngWriter::Color> maskColor = {}; ///< of masked pixels; without it they are transparent
  bool squarePixels = true;                       ///< pictures whose shape is known in mm get square pixels
};

/// "transparent", "#rrggbb" or the name of a colour. Throws std::invalid_argument, naming what there is.
std::optional<PngWriter::Color> parseMaskColor(const std::string& text);

} // namespace Kelvaris::CommandLine
