#include "viewer/view/DisplayMapping.h"

#include <cmath>

namespace Kelvaris::Viewer {

void DisplayMapping::setCenterAndWidth(double center, double width) {
  low = center - 0.5 * width;
  high = center + 0.5 * width;
}

void DisplayMapping::drag(double right, double down) {
  constexpr double kSensitivity = 1.0 / 250.0; // of a pixel
  const double widened = width() * std::exp(right * kSensitivity), moved = down * kSensitivity * width();
  if (law == Law::Linear) return setCenterAndWidth(center() + moved, widened);
  high += moved;
  low = high - widened;
}

double DisplayMapping::shown(double value) const {
  return law == Law::Linear ? value : 20.0 * std::log10(std::abs(value));
}

unsigned char DisplayMapping::level(double value) const {
  double level = 255.0 * (shown(value) - low) / width();
  level = level > 0.0 ? level : 0.0;
  return static_cast<unsigned char>((level < 255.0 ? level : 255.0) + 0.5);
}

bool isColor(const ImageDescriptor& d) {
  return d.pixelType() == PixelUInt8 && (d.channels() == 3 || d.channels() == 4);
}

} // namespace Kelvaris::Viewer
