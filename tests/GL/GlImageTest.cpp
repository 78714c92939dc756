#include "GL/GlImage.h"

#include "GL/Check.h"
#include "Lib/SharedImage.h"
#include "RequireGL.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <thread>
#include <vector>

namespace Kelvaris {
namespace {

/// Writes `values` one after the other into an image of one row, takes it through a texture and back.
template <typename T> std::vector<T> throughTexture(int pixelType, const std::vector<T>& values) {
  const auto image = MemImage::create(ImageDescriptor(pixelType, static_cast<int>(values.size()), 1));
  std::copy(values.begin(), values.end(), static_cast<T*>(image->data()));
  const auto back = GlImage(*image).download();
  EXPECT_EQ(back->descriptor().pixelType(), pixelType);
  const T* data = static_cast<const T*>(back->data());
  return {data, data + values.size()};
}

template <typename T> class GlImageExactTypes : public testing::Test {};
using ExactTypes = testing::Types<signed char, unsigned char, short, unsigned short>;
TYPED_TEST_SUITE(GlImageExactTypes, ExactTypes);

TYPED_TEST(GlImageExactTypes, EveryValueSurvives) {
  KELVARIS_REQUIRE_GL();
  using T = TypeParam;
  constexpr int lowest = std::numeric_limits<T>::lowest();
  constexpr int highest = std::numeric_limits<T>::max();
  std::vector<T> values;
  // In steps that keep the row within every driver's texture size, with both ends.
  for (int value = lowest; value<highest; value += highest> 255 ? 7 : 1)
    values.push_back(static_cast<T>(value));
  values.insert(values.end(), {static_cast<T>(lowest), static_cast<T>(lowest + 1), static_cast<T>(highest)});
  EXPECT_EQ(throughTexture(pixelTypeOf<T>(), values), values);
}

TEST(GlImage, FloatsSurviveBitForBit) {
  KELVARIS_REQUIRE_GL();
  const std::vector<float> values{0.0f,
                                  -0.0f,
                                  1.0f / 3.0f,
                                  -1e30f,
                                  std::numeric_limits<float>::max(),
                                  std::numeric_limits<float>::infinity(),
                                  -32768.0f,
                                  -32767.0f};
  const auto back = throughTexture<float>(PixelFloat, values);
  for (std::size_t i = 0; i < values.size(); ++i)
    EXPECT_EQ(std::bit_cast<std::uint32_t>(back[i]), std::bit_cast<std::uint32_t>(values[i])) << values[i];
  EXPECT_TRUE(std::isnan(throughTexture<float>(PixelFloat, {std::nanf("")})[0]));
}

TEST(GlImage, OtherTypesAreRoundedToWhatATexelHolds) {
  KELVARIS_REQUIRE_GL();
  // Halves have 11 significant bits and ties go to even.
  EXPECT_EQ(throughTexture<float>(PixelHalf, {1.5f, 2049.0f, 2051.0f, 65504.0f, 0.1f}),
            (std::vector<float>{1.5f, 2048.0f, 2052.0f, 65504.0f, 0.0999755859375f}));
  EXPECT_EQ(throughTexture<int>(PixelInt32, {16777216, 16777217, 2147483647, -2147483647 - 1}),
            (std::vector<int>{16777216, 16777216, 2147483647, -2147483647 - 1}));
  EXPECT_EQ(throughTexture<unsigned>(PixelUInt32, {0u, 4294967295u}), (std::vector<unsigned>{0u, 4294967295u}));
  EXPECT_EQ(throughTexture<double>(PixelDouble, {0.1, 1e300}),
            (std::vector<double>{static_cast<double>(0.1f), std::numeric_limits<double>::infinity()}));
}

struct Shape {
  int width, height, slices, channels;
};

class GlImageShapes : public testing::TestWithParam<Shape> {};

TEST_P(GlImageShapes, KeepTheOrderOfTheSamples) {
  KELVARIS_REQUIRE_GL();
  const Shape shape = GetParam();
  for (const int pixelType : {PixelInt16, PixelFloat, PixelHalf}) {
    ImageDescriptor descriptor(pixelType, shape.width, shape.height, shape.slices, shape.channels);
    descriptor.setSpacing({0.25, 0.5, 2.0});
    descriptor.setScale(3.0);
    const auto image = MemImage::create(descriptor);
    std::mt19937 random(7);
    dispatchPixelType(pixelType, [&]<typename T>() {
      T* data = static_cast<T*>(image->data());
      for (std::size_t i = 0; i < descriptor.elementCount(); ++i)
        data[i] = static_cast<T>(static_cast<int>(random() % 4000) - 2000); // exact in a half
    });
    const auto back = GlImage(*image).download();
    EXPECT_TRUE(back->descriptor().isApprox(descriptor));
    ASSERT_EQ(back->byteSize(), image->byteSize());
    EXPECT_EQ(std::memcmp(back->data(), image->data(), image->byteSize()), 0) << descriptor.toString();
  }
}

INSTANTIATE_TEST_SUITE_P(All, GlImageShapes,
                         testing::Values(Shape{1, 1, 1, 1}, Shape{7, 5, 1, 1}, Shape{7, 5, 1, 2}, Shape{7, 5, 1, 3},
                                         Shape{7, 5, 1, 4}, Shape{5, 3, 4, 1}, Shape{5, 3, 4, 2}, Shape{5, 3, 4, 3},
                                         Shape{3, 3000, 75, 1}));

TEST(GlImage, IsAFormOfASharedImage) {
  KELVARIS_REQUIRE_GL();
  auto mem = std::make_shared<TypedImage<short>>(4, 3);
  for (std::size_t i = 0; i < mem->size(); ++i)
    (*mem)[i] = static_cast<short>(-32768 + static_cast<int>(i));
  const SharedImage image(mem);
  const auto texture = image.sharedCustom<GlImage>();
  EXPECT_EQ(image.sharedCustom<GlImage>(), texture);
  const SharedImage holder{std::shared_ptr<Image>(texture)};
  EXPECT_EQ(holder.mem()->valueAsDouble(3, 2, 0, 0), -32768 + 11);
  EXPECT_EQ(holder.mem()->valueAsDouble(1, 0, 0, 0), -32767);
}

TEST(GlImage, RefusesWhatNoTextureCanHold) {
  KELVARIS_REQUIRE_GL();
  for (const ImageDescriptor& descriptor : {ImageDescriptor(PixelFloat, 4, 4, 1, 5), ImageDescriptor(PixelFloat, 0, 4),
                                            ImageDescriptor(1234, 4, 4), ImageDescriptor(PixelFloat, 4, 4, 1, 0)})
    EXPECT_THROW(GlImage{descriptor}, std::invalid_argument) << descriptor.toString();
  try {
    const GlImage image(ImageDescriptor(PixelFloat, 1, 10'000'000));
    FAIL() << "no error";
  } catch (const GL::Error& error) {
    const std::string text = error.what();
    EXPECT_NE(text.find("1 x 10000000 x 1"), std::string::npos) << text;
    EXPECT_NE(text.find("largest here has"), std::string::npos) << text;
  }
}

TEST(GlImage, WorksOnManyThreadsAtOnce) {
  KELVARIS_REQUIRE_GL();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int round = 0; round < 10; ++round) {
        TypedImage<short> image(33, 17);
        for (std::size_t i = 0; i < image.size(); ++i)
          image[i] = static_cast<short>(t * 1000 + round + static_cast<int>(i));
        const auto back = GlImage(image).download();
        EXPECT_EQ(std::memcmp(back->data(), image.data(), image.byteSize()), 0);
      }
    });
  for (std::thread& thread : threads)
    thread.join();
}

} // namespace
} // namespace Kelvaris
