#include "GL/GlImage.h"

#include "GL/Check.h"
#include "Lib/SharedImage.h"
#include "RequireGL.h"
#include "support/ErrorOf.h"
#include "support/Images.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace Kelvaris {
namespace {

using Doubles = std::vector<double>;

/// What becomes of `values`, an image of one row, in a texture.
Doubles throughTexture(int pixelType, const Doubles& values) {
  const auto at = [&](int x, int, int, int) { return values[static_cast<std::size_t>(x)]; };
  const auto back =
      GlImage(*Tests::imageOf(ImageDescriptor(pixelType, static_cast<int>(values.size()), 1), at)).download();
  EXPECT_EQ(back->descriptor().pixelType(), pixelType);
  Doubles result;
  for (int x = 0; x < back->width(); ++x)
    result.push_back(back->valueAsDouble(x, 0, 0, 0));
  return result;
}

TEST(GlImage, SmallIntegersSurvive) {
  KELVARIS_REQUIRE_GL();
  for (const int type : {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16}) {
    const double lowest = Tests::stored(-1e9, type), highest = Tests::stored(1e9, type);
    const double step = highest > 255 ? 9 : 1; // keeps the row within every driver's texture size
    Doubles values = {highest};
    for (double value = lowest; value < highest; value += step)
      values.insert(values.end(), {value, value + 1});
    EXPECT_EQ(throughTexture(type, values), values) << type;
  }
}

TEST(GlImage, OtherTypesAreRoundedToWhatATexelHolds) {
  KELVARIS_REQUIRE_GL();
  const double infinity = std::numeric_limits<double>::infinity(), third = 1.0f / 3.0f;
  const struct {
    int type;
    Doubles values, expected;
  } cases[] = {
      {PixelFloat, {third, -1e30f, 3.4e38f, infinity, -32768}, {third, -1e30f, 3.4e38f, infinity, -32768}},
      // Halves have 11 significant bits and ties go to even.
      {PixelHalf, {1.5, 2049, 2051, 65504, 0.1}, {1.5, 2048, 2052, 65504, 0.0999755859375}},
      {PixelInt32, {16777216, 16777217, 2147483647, -2147483648.0}, {16777216, 16777216, 2147483647, -2147483648.0}},
      {PixelUInt32, {0, 4294967295}, {0, 4294967295}},
      {PixelDouble, {0.1, 1e300}, {0.1f, infinity}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(throughTexture(c.type, c.values), c.expected) << c.type;
  EXPECT_TRUE(std::isnan(throughTexture(PixelFloat, {std::nan("")})[0]));
  EXPECT_TRUE(std::signbit(throughTexture(PixelFloat, {-0.0})[0]));
}

TEST(GlImage, KeepsTheOrderOfTheSamples) {
  KELVARIS_REQUIRE_GL();
  const Eigen::Vector4i shapes[] = {{1, 1, 1, 1}, {7, 5, 1, 1}, {7, 5, 1, 2}, {7, 5, 1, 3},    {7, 5, 1, 4},
                                    {5, 3, 4, 1}, {5, 3, 4, 2}, {5, 3, 4, 3}, {3, 3000, 75, 1}};
  for (const Eigen::Vector4i& shape : shapes)
    for (const int type : {PixelInt16, PixelFloat, PixelHalf}) {
      ImageDescriptor descriptor(type, shape[0], shape[1], shape[2], shape[3]);
      descriptor.setSpacing({0.25, 0.5, 2.0});
      descriptor.setScale(3.0);
      int i = 0;
      const auto image = Tests::imageOf(descriptor, [&](int, int, int, int) { return i++ % 1999 - 1000; });
      const auto back = GlImage(*image).download();
      EXPECT_TRUE(back->descriptor().isApprox(descriptor));
      EXPECT_TRUE(Tests::sameBytes(*back, *image)) << descriptor.toString();
    }
}

TEST(GlImage, IsAFormOfASharedImage) {
  KELVARIS_REQUIRE_GL();
  const auto value = [](int x, int y, int, int) { return -32768 + x + 4 * y; };
  const SharedImage image(Tests::imageOf(ImageDescriptor(PixelInt16, 4, 3), value));
  const auto texture = image.sharedCustom<GlImage>();
  EXPECT_EQ(image.sharedCustom<GlImage>(), texture);
  EXPECT_EQ(Tests::worstError(*SharedImage(std::shared_ptr<Image>(texture)).mem(), value), 0.0);
}

TEST(GlImage, RefusesWhatNoTextureCanHold) {
  KELVARIS_REQUIRE_GL();
  for (const ImageDescriptor& descriptor : {ImageDescriptor(PixelFloat, 4, 4, 1, 5), ImageDescriptor(PixelFloat, 0, 4),
                                            ImageDescriptor(1234, 4, 4), ImageDescriptor(PixelFloat, 4, 4, 1, 0)})
    EXPECT_THROW(GlImage{descriptor}, std::invalid_argument) << descriptor.toString();
  const std::string error =
      Tests::errorOf<GL::Error>([] { const GlImage image(ImageDescriptor(PixelFloat, 1, 10'000'000)); });
  EXPECT_CONTAINS(error, "1 x 10000000 x 1");
  EXPECT_CONTAINS(error, "largest here has");
}

} // namespace
} // namespace Kelvaris
