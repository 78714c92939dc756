#include "GL/GlImage.h"

#include "GL/Check.h"
#include "RequireGL.h"
#include "support/ErrorOf.h"
#include "support/Images.h"
#include "support/Samples.h"

#include <epoxy/gl.h>

namespace Kelvaris {
namespace {

using Doubles = std::vector<double>;
using GlImageTest = Tests::GLTest<>;

/// Whether a texture makes `expected` of `values`, an image of one row.
void expectTexels(int pixelType, const Doubles& values, const Doubles& expected) {
  const auto in = [](const Doubles& row) {
    return [&row](int x, int, int, int) { return row[static_cast<std::size_t>(x)]; };
  };
  const ImageDescriptor descriptor(pixelType, static_cast<int>(values.size()), 1);
  const auto back = GlImage(*Tests::imageOf(descriptor, in(values))).download();
  EXPECT_EQ(back->descriptor().pixelType(), pixelType);
  EXPECT_EQ(Tests::worstError(*back, in(expected)), 0.0) << pixelType;
}

TEST_F(GlImageTest, TypesAreRoundedToWhatATexelHolds) {
  for (const int type : {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16}) {
    const double lowest = Tests::stored(-1e9, type), highest = Tests::stored(1e9, type);
    const double step = highest > 255 ? 9 : 1; // keeps the row within every driver's texture size
    Doubles values = {highest};
    for (double value = lowest; value < highest; value += step)
      values.insert(values.end(), {value, value + 1});
    expectTexels(type, values, values);
  }
  const double infinity = std::numeric_limits<double>::infinity(), third = 1.0f / 3.0f;
  const Doubles floats = {third, -1e30f, 3.4e38f, infinity, std::nan("")};
  expectTexels(PixelFloat, floats, floats);
  // Halves have 11 significant bits and ties go to even.
  expectTexels(PixelHalf, {1.5, 2049, 2051, 65504, 0.1}, {1.5, 2048, 2052, 65504, 0.0999755859375});
  expectTexels(PixelInt32, {16777217, 2147483647, -2147483648.0}, {16777216, 2147483647, -2147483648.0});
  expectTexels(PixelUInt32, {0, 4294967295}, {0, 4294967295});
  expectTexels(PixelDouble, {0.1, 1e300}, {0.1f, infinity});
}

TEST_F(GlImageTest, WhatShadersWriteIsRoundedAndClampedOnItsWayBack) {
  const GL::ContextManager::ActivationGuard guard;
  const float infinity = std::numeric_limits<float>::infinity();
  const std::tuple<int, float, double> cases[] = {{PixelInt16, 2.5f, 3},          {PixelInt16, -2.5f, -3},
                                                  {PixelInt16, -2.4f, -2},        {PixelUInt8, -1.0f, 0},
                                                  {PixelInt8, 1e3f, 127},         {PixelInt32, infinity, 2147483647},
                                                  {PixelInt32, std::nanf(""), 0}, {PixelHalf, 2048.25f, 2048}};
  for (const auto& [pixelType, texel, expected] : cases)
    for (int channels = 1; channels <= 4; ++channels) {
      const GlImage image(ImageDescriptor(pixelType, 1, 1, 1, channels));
      const float texels[] = {texel, texel, texel, texel};
      KELVARIS_GL_CHECKED(glClearTexImage(image.texture(), 0, GL_RGBA, GL_FLOAT, texels));
      EXPECT_EQ(image.download()->valueAsDouble(0, 0, 0, channels - 1), expected) << pixelType << " " << channels;
    }
}

TEST_F(GlImageTest, KeepsTheOrderOfTheSamples) {
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

TEST_F(GlImageTest, RefusesWhatNoTextureCanHold) {
  for (const ImageDescriptor& descriptor : {ImageDescriptor(PixelFloat, 4, 4, 1, 5), ImageDescriptor(PixelFloat, 0, 4),
                                            ImageDescriptor(1234, 4, 4), ImageDescriptor(PixelFloat, 4, 4, 1, 0)})
    EXPECT_THROW(GlImage{descriptor}, std::invalid_argument) << descriptor.toString();
  EXPECT_CONTAINS(Tests::errorOf<GL::Error>([] { const GlImage image(ImageDescriptor(PixelFloat, 1, 10'000'000)); }),
                  "1 x 10000000 x 1");
}

} // namespace
} // namespace Kelvaris
