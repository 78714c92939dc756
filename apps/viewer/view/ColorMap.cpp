#include "viewer/view/ColorMap.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace Kelvaris::Viewer {
namespace {

int byteOf(double share) {
  return static_cast<int>(std::lround(255.0 * std::clamp(share, 0.0, 1.0)));
}

QRgb gray(double t) {
  return qRgb(byteOf(t), byteOf(t), byteOf(t));
}

QRgb hot(double t) {
  return qRgb(byteOf(3.0 * t), byteOf(3.0 * t - 1.0), byteOf(3.0 * t - 2.0));
}

/// D. A. Green, "A colour scheme for the display of astronomical intensity images", Bull. Astr. Soc. India 39 (2011),
/// eq. 2, with start 0.5, -1.5 rotations, hue 1 and gamma 1.
QRgb cubehelix(double t) {
  const double angle = 2.0 * std::numbers::pi * (0.5 / 3.0 + 1.0 - 1.5 * t);
  const double amplitude = 0.5 * t * (1.0 - t), c = amplitude * std::cos(angle), s = amplitude * std::sin(angle);
  return qRgb(byteOf(t - 0.14861 * c + 1.78277 * s), byteOf(t - 0.29227 * c - 0.90649 * s), byteOf(t + 1.97294 * c));
}

/// CIE 1976 lightness (0 to 100), chroma and hue (degrees) as an sRGB colour (ISO/CIE 11664-4 and IEC 61966-2-1, white
/// point D65).
QRgb fromLightnessChromaHue(double lightness, double chroma, double hue) {
  const double angle = hue * std::numbers::pi / 180.0;
  const double fy = (lightness + 16.0) / 116.0, fx = fy + chroma * std::cos(angle) / 500.0,
               fz = fy - chroma * std::sin(angle) / 200.0;
  const auto inverse = [](double f) {
    constexpr double kink = 6.0 / 29.0;
    return f > kink ? f * f * f : 3.0 * kink * kink * (f - 4.0 / 29.0);
  };
  const double x = 0.95047 * inverse(fx), y = inverse(fy), z = 1.08883 * inverse(fz);
  const auto encode = [](double linear) {
    return byteOf(linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055);
  };
  return qRgb(encode(3.2406 * x - 1.5372 * y - 0.4986 * z), encode(-0.9689 * x + 1.8758 * y + 0.0415 * z),
              encode(0.0557 * x - 0.2040 * y + 1.0570 * z));
}

/// From black over blue, red and orange to a light yellow; the lightness rises evenly.
QRgb ember(double t) {
  const double chroma = 62.0 * std::sin(std::numbers::pi * std::pow(t, 0.9));
  return fromLightnessChromaHue(2.0 + 96.0 * t, std::max(chroma, 0.0), 290.0 + 165.0 * t);
}

/// Blue below the middle, red above it, almost white in it; lightness and chroma are even in the distance from it (the
/// idea of K. Moreland, "Diverging Color Maps for Scientific Visualization", ISVC 2009).
QRgb diverging(double t) {
  const double distance = std::abs(2.0 * t - 1.0);
  return fromLightnessChromaHue(95.0 - 62.0 * distance, 62.0 * distance, t < 0.5 ? 288.0 : 33.0);
}

ColorMap make(const char* name, const char* description, QRgb (*color)(double)) {
  ColorMap map{QString::fromUtf8(name), QString::fromUtf8(description), {}};
  for (int i = 0; i < 256; ++i)
    map.colors[static_cast<std::size_t>(i)] = color(i / 255.0);
  return map;
}

} // namespace

const std::vector<ColorMap>& colorMaps() {
  static const std::vector<ColorMap> maps = {
      make("Gray", "Gray levels, black for the lowest", gray),
      make("Inverted gray", "Gray levels, white for the lowest", [](double t) { return gray(1.0 - t); }),
      make("Ember", "Blue, red, yellow; lightness rises evenly, for levels and decibels", ember),
      make("Cubehelix", "Through all hues with evenly rising brightness, also readable in gray", cubehelix),
      make("Hot", "Black, red, yellow, white", hot),
      make("Blue-red", "Blue below and red above the middle, for signals of both signs", diverging),
  };
  return maps;
}

int colorMapIndex(const QString& name) {
  const auto& maps = colorMaps();
  const auto found = std::find_if(maps.begin(), maps.end(), [&](const ColorMap& map) { return map.name == name; });
  return found == maps.end() ? -1 : static_cast<int>(found - maps.begin());
}

} // namespace Kelvaris::Viewer
