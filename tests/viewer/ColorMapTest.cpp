#include "viewer/view/ColorMap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>

namespace Kelvaris::Viewer {
namespace {

/// CIE 1976 lightness of an sRGB colour, from its luminance.
double lightness(QRgb color) {
  const auto linear = [](int byte) {
    const double c = byte / 255.0;
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
  };
  const double y = 0.2126 * linear(qRed(color)) + 0.7152 * linear(qGreen(color)) + 0.0722 * linear(qBlue(color));
  return y > 216.0 / 24389.0 ? 116.0 * std::cbrt(y) - 16.0 : 24389.0 / 27.0 * y;
}

TEST(ColorMapTest, NamesAreUniqueAndFound) {
  std::set<QString> names;
  for (const ColorMap& map : colorMaps()) {
    EXPECT_TRUE(names.insert(map.name).second) << map.name.toStdString();
    EXPECT_EQ(&colorMaps()[static_cast<std::size_t>(colorMapIndex(map.name))], &map);
  }
  EXPECT_EQ(colorMapIndex("no such map"), -1);
}

TEST(ColorMapTest, GrayIsLevelForLevel) {
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(colorMaps()[0].colors[static_cast<std::size_t>(i)], qRgb(i, i, i));
    EXPECT_EQ(colorMaps()[1].colors[static_cast<std::size_t>(i)], qRgb(255 - i, 255 - i, 255 - i));
  }
}

struct Shape {
  const char* name;
  double low, middle, high; ///< lightness that the map promises for the levels 0, 127.5 and 255
  double tolerance;
};

class ColorMapLightness : public ::testing::TestWithParam<Shape> {};

// A map that clips at the sRGB gamut, or takes a wrong turn in a conversion, has a kink in its lightness.
TEST_P(ColorMapLightness, IsEven) {
  const Shape& shape = GetParam();
  const ColorMap& map = colorMaps()[static_cast<std::size_t>(colorMapIndex(shape.name))];
  for (std::size_t i = 0; i < 256; ++i) {
    const double t = static_cast<double>(i) / 255.0;
    const double expected = t < 0.5 ? shape.low + 2.0 * t * (shape.middle - shape.low)
                                    : shape.middle + (2.0 * t - 1.0) * (shape.high - shape.middle);
    EXPECT_NEAR(lightness(map.colors[i]), expected, shape.tolerance) << shape.name << ", level " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Maps, ColorMapLightness,
                         ::testing::Values(Shape{"Ember", 2, 50, 98, 1.0}, Shape{"Blue-red", 33, 95, 33, 1.0}),
                         [](const auto& tested) { return "Map" + std::to_string(tested.index); });

// What the helix is made for: the brightness that a television computes of its colours is the level.
TEST(ColorMapTest, CubehelixIsAGrayRampInBlackAndWhite) {
  const ColorMap& map = colorMaps()[static_cast<std::size_t>(colorMapIndex("Cubehelix"))];
  for (int i = 0; i < 256; ++i) {
    const QRgb color = map.colors[static_cast<std::size_t>(i)];
    EXPECT_NEAR(0.30 * qRed(color) + 0.59 * qGreen(color) + 0.11 * qBlue(color), i, 1.0);
  }
}

} // namespace
} // namespace Kelvaris::Viewer
