#pragma once

#include "Lib/ImageDescriptor.h"

namespace Kelvaris::Viewer {

/// How the values of pixels become the 256 levels of a colour map. The value of a pixel is its real one (stored / scale
/// - shift), that of a pixel of several components the magnitude.
struct DisplayMapping {
  enum class Law {
    Linear,  ///< the value is shown
    Decibels ///< 20 log10 |value| is shown: decibels relative to a value of 1
  };

  Law law = Law::Linear;
  double low = 0.0;    ///< what is shown by level 0
  double high = 255.0; ///< what is shown by level 255; above low

  double center() const { return 0.5 * (low + high); }
  double width() const { return high - low; }
  void setCenterAndWidth(double center, double width);
  /// The mouse was dragged by so many pixels: to the right for a wider range (in decibels with the top where it is),
  /// upwards for a brighter picture.
  void drag(double right, double down);

  /// What the law makes of a value; -infinity for 0 in decibels.
  double shown(double value) const;
  /// 255 (shown(value) - low) / width(), rounded half up, within 0 and 255. 0 for NaN.
  unsigned char level(double value) const;

  bool operator==(const DisplayMapping&) const = default;
};

/// Samples that are colours already: uint8 with 3 (RGB) or 4 (RGBA) components.
bool isColor(const ImageDescriptor& descriptor);

} // namespace Kelvaris::Viewer
