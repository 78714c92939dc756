#include "GL/ImageResamplingAlgorithm.h"

#include "GL/GlImage.h"
#include "Lib/IntensityMask.h"
#include "RequireGL.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace Kelvaris {
namespace {

using Resampling = ImageResamplingAlgorithm;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

ImageDescriptor described(int pixelType, Eigen::Vector3i extent, Eigen::Vector3d spacing, int channels = 1) {
  ImageDescriptor descriptor(pixelType, extent.x(), extent.y(), extent.z(), channels);
  descriptor.setSpacing(spacing);
  return descriptor;
}

template <typename Value> std::shared_ptr<MemImage> filled(const ImageDescriptor& descriptor, Value&& value) {
  std::shared_ptr<MemImage> image = MemImage::create(descriptor);
  dispatchPixelType(descriptor.pixelType(), [&]<typename T>() {
    T* sample = static_cast<T*>(image->data());
    for (int z = 0; z < image->slices(); ++z)
      for (int y = 0; y < image->height(); ++y)
        for (int x = 0; x < image->width(); ++x)
          for (int channel = 0; channel < image->channels(); ++channel)
            *sample++ = static_cast<T>(value(x, y, z, channel));
  });
  return image;
}

std::shared_ptr<SharedImage> resample(const SharedImage& image, const Eigen::Vector3d& spacing,
                                      int mode = Resampling::Linear) {
  Resampling algorithm(nullptr, nullptr);
  algorithm.setTargetSpacing(spacing);
  algorithm.mode = mode;
  return algorithm.processImage(image, {}).first;
}

/// The same image as a texture, if there is OpenGL.
std::vector<std::shared_ptr<SharedImage>> forms(const std::shared_ptr<MemImage>& image) {
  std::vector<std::shared_ptr<SharedImage>> all = {std::make_shared<SharedImage>(image)};
  if (GL::ContextManager::get().isAvailable())
    all.push_back(std::make_shared<SharedImage>(std::make_shared<GlImage>(*image)));
  return all;
}

// A ramp over world positions is met exactly by linear interpolation, so every sample tells where it lies.
TEST(ImageResampling, PlacesSamplesAtPixelCentresAndKeepsTheExtent) {
  const struct {
    const char* what;
    Eigen::Vector3i extent;
    Eigen::Vector3d spacing, target;
    Eigen::Vector3i expected;
  } cases[] = {
      {"half the pixels", {4, 12, 1}, {0.5, 0.1, 1}, {0.5, 0.2, 1}, {4, 6, 1}},
      {"a third, of an odd number", {3, 10, 1}, {1, 1, 1}, {1, 3, 1}, {3, 3, 1}},
      {"half of an odd number goes up", {3, 7, 1}, {1, 0.1, 1}, {1, 0.2, 1}, {3, 4, 1}},
      {"more pixels", {5, 4, 1}, {0.3, 0.3, 1}, {0.1, 0.15, 1}, {15, 8, 1}},
      {"a ratio that isn't whole", {16, 9, 1}, {0.7, 0.9, 1}, {0.83, 0.31, 1}, {13, 26, 1}},
      {"slices", {3, 4, 6}, {1, 1, 2}, {1, 1, 3}, {3, 4, 4}},
      {"all axes of a volume", {6, 5, 4}, {0.5, 1, 2}, {0.75, 0.4, 1.5}, {4, 13, 5}},
      {"a volume becomes one slice", {3, 4, 6}, {1, 1, 2}, {1, 1, 100}, {3, 4, 1}},
      {"one slice becomes a volume", {3, 4, 1}, {1, 1, 2}, {1, 1, 0.5}, {3, 4, 4}},
      {"never less than a pixel", {3, 4, 1}, {1, 1, 1}, {50, 50, 50}, {1, 1, 1}},
  };
  for (const auto& c : cases)
    for (const int pixelType : {PixelFloat, PixelInt16, PixelDouble}) {
      const Eigen::Vector3d scale = pixelType == PixelInt16 ? Eigen::Vector3d(500, 250, 100) : Eigen::Vector3d(3, 7, 2);
      const auto input = filled(described(pixelType, c.extent, c.spacing, 2), [&](int x, int y, int z, int channel) {
        return (channel + 1) * scale.dot(Eigen::Vector3d(x, y, z));
      });
      for (const auto& image : forms(input)) {
        SCOPED_TRACE(std::string(c.what) + ", " + input->descriptor().toString() +
                     (image->hasForm(ImageForm::Gl) ? ", texture" : ""));
        const bool asTexture = image->hasForm(ImageForm::Gl) && pixelType != PixelDouble;
        const auto output = resample(*image, c.target);
        ASSERT_NE(output, nullptr);
        EXPECT_EQ(output->hasForm(ImageForm::Gl), asTexture);
        const ImageDescriptor& d = output->descriptor();
        ASSERT_EQ(d.dimensions(), c.expected);
        EXPECT_EQ(d.pixelType(), pixelType);
        EXPECT_EQ(d.channels(), 2);
        const Eigen::Vector3d extent = c.extent.cast<double>().cwiseProduct(c.spacing);
        EXPECT_LT((d.dimensions().cast<double>().cwiseProduct(d.spacing()) - extent).norm(), 1e-12 * extent.norm());
        const auto pixels = output->mem();
        int wrong = 0;
        for (int z = 0; z < d.slices(); ++z)
          for (int y = 0; y < d.height(); ++y)
            for (int x = 0; x < d.width(); ++x)
              for (int channel = 0; channel < 2; ++channel) {
                Eigen::Vector3d position =
                    Eigen::Vector3d(x + 0.5, y + 0.5, z + 0.5).cwiseProduct(d.spacing()).cwiseQuotient(c.spacing) -
                    Eigen::Vector3d::Constant(0.5);
                position = position.cwiseMax(0.0).cwiseMin(c.extent.cast<double>() - Eigen::Vector3d::Ones());
                const double expected = (channel + 1) * scale.dot(position), tolerance = pixelType == PixelInt16
                                                                                             ? 0.5001
                                                                                         : asTexture ? 1e-4
                                                                                                     : 1e-5;
                wrong += !(std::abs(pixels->valueAsDouble(x, y, z, channel) - expected) <= tolerance);
              }
        EXPECT_EQ(wrong, 0);
      }
    }
}

TEST(ImageResampling, TexturesAndMainMemoryAgreeForAllTypes) {
  KELVARIS_REQUIRE_GL();
  for (const int pixelType : {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelFloat, PixelHalf})
    for (const int mode : {Resampling::Linear, Resampling::Nearest}) {
      std::mt19937 random(3);
      const auto input = filled(described(pixelType, {17, 23, 3}, {1, 1, 1}, 3), [&](int, int, int, int) {
        return static_cast<int>(random() % 200) - (pixelType == PixelUInt8 || pixelType == PixelUInt16 ? 0 : 100);
      });
      const auto both = forms(input);
      const auto mem = resample(*both[0], {0.6, 1.7, 0.9}, mode), texture = resample(*both[1], {0.6, 1.7, 0.9}, mode);
      ASSERT_TRUE(texture->hasForm(ImageForm::Gl) && !mem->hasForm(ImageForm::Gl));
      ASSERT_TRUE(texture->descriptor().isApprox(mem->descriptor()));
      const double tolerance = mode == Resampling::Nearest ? 0.0
                               : pixelType == PixelFloat   ? 1e-4
                               : pixelType == PixelHalf    ? 0.0626 // one half-float step near 100
                                                           : 1.0;
      const auto a = mem->mem(), b = texture->mem();
      dispatchPixelType(pixelType, [&]<typename T>() {
        const T *first = static_cast<const T*>(a->data()), *second = static_cast<const T*>(b->data());
        double worst = 0.0;
        for (std::size_t i = 0; i < a->descriptor().elementCount(); ++i)
          worst = std::max(worst, std::abs(static_cast<double>(first[i]) - static_cast<double>(second[i])));
        EXPECT_LE(worst, tolerance) << mem->descriptor().toString() << ", mode " << mode;
      });
    }
}

TEST(ImageResampling, TheSameSpacingPassesSamplesThrough) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  const std::vector<float> values = {0.1f, infinity, 3e38f, -3e38f, 1e-44f, static_cast<float>(kNan)};
  const auto input = filled(described(PixelFloat, {2, 3, 1}, {0.3, 0.7, 1}),
                            [&](int x, int y, int, int) { return values[static_cast<std::size_t>(2 * y + x)]; });
  for (const auto& image : forms(input))
    for (const int mode : {Resampling::Linear, Resampling::Nearest}) {
      const auto output = resample(*image, {0.3, 0.7, 1}, mode);
      EXPECT_EQ(output->descriptor().spacing(), input->descriptor().spacing());
      const auto pixels = output->mem();
      for (int i = 0; i < 6; ++i) {
        const double value = pixels->valueAsDouble(i % 2, i / 2, 0, 0),
                     expected = input->valueAsDouble(i % 2, i / 2, 0, 0);
        EXPECT_TRUE(value == expected || (std::isnan(value) && std::isnan(expected)) ||
                    (std::abs(expected) < 1e-40 && value == 0.0)) // a driver may flush denormal numbers
            << value << ", expected " << expected;
      }
    }
}

TEST(ImageResampling, NearestTakesTheLaterOfTwo) {
  const auto input = filled(described(PixelUInt8, {1, 6, 1}, {1, 1, 1}), [](int, int y, int, int) { return 10 * y; });
  for (const auto& image : forms(input)) {
    const auto output = resample(*image, {1, 2, 1}, Resampling::Nearest)->mem();
    for (int y = 0; y < 3; ++y)
      EXPECT_EQ(output->valueAsDouble(0, y, 0, 0), 20 * y + 10);
  }
}

TEST(ImageResampling, InvalidPixelsStayInvalidAndOutOfTheSums) {
  const std::vector<double> values = {10, kNan, 30, 40, kNan, kNan};
  auto input =
      std::make_shared<SharedImage>(filled(described(PixelFloat, {1, 6, 1}, {1, 1, 1}),
                                           [&](int, int y, int, int) { return values[static_cast<std::size_t>(y)]; }));
  if (GL::ContextManager::get().isAvailable()) input->sharedCustom<GlImage>();
  const auto mask = std::make_shared<IntensityMask>(PixelFloat, kNan);
  input->setMask(mask);
  const auto output = resample(*input, {1, 0.5, 1});
  EXPECT_EQ(output->mask(), mask);
  const std::vector<double> expected = {10, 10, kNan, kNan, 30, 32.5, 37.5, 40, kNan, kNan, kNan, kNan};
  for (int y = 0; y < 12; ++y) {
    const double value = output->mem()->valueAsDouble(0, y, 0, 0), wanted = expected[static_cast<std::size_t>(y)];
    EXPECT_TRUE(value == wanted || (std::isnan(value) && std::isnan(wanted))) << y << ": " << value;
  }
}

TEST(ImageResampling, ComputesASetWithItsState) {
  SharedImageSet images;
  images.setModality(Data::Ultrasound);
  for (int i = 0; i < 2; ++i) {
    auto image = std::make_shared<SharedImage>(
        filled(described(PixelInt16, {2, 4, 1}, {1, 1, 1}), [](int, int y, int, int) { return y; }));
    image->setMatrix(Eigen::Matrix4d::Identity() * 2.0);
    image->setModality(Data::Ultrasound);
    images.add(image, 5.0 + i);
  }
  const SharedImage reference(described(PixelFloat, {1, 1, 1}, {1, 2, 1}));
  Resampling algorithm(&images, &reference);
  algorithm.compute();
  ASSERT_EQ(algorithm.status(), Algorithm::Success);
  const auto output = algorithm.takeOutput().extract<SharedImageSet>();
  ASSERT_EQ(output->size(), 2);
  EXPECT_EQ(output->modality(), Data::Ultrasound);
  EXPECT_EQ(output->timestamp(1), 6.0);
  EXPECT_EQ(output->get(1).descriptor().height(), 2);
  EXPECT_EQ(output->get(1).matrix(), images.get(1).matrix());
  EXPECT_EQ(output->get(1).modality(), Data::Ultrasound);
  EXPECT_TRUE(algorithm.takeOutput().empty());
}

TEST(ImageResampling, SaysWhatIsWrong) {
  const struct {
    Eigen::Vector3d spacing, target;
    int mode;
    const char* message;
  } cases[] = {
      {{1, 1, 1}, {1, 0, 1}, 0, "The target spacing (1, 0, 1) must be positive and finite"},
      {{1, 1, 1}, {1, -2, 1}, 0, "The target spacing (1, -2, 1) must"},
      {{1, 1, 1}, {kNan, 1, 1}, 0, "The target spacing (nan, 1, 1) must"},
      {{1, 1, 1}, {1, 1, 1.0 / 0.0}, 0, "(1, 1, inf) must"},
      {{1, 0, 1}, {1, 1, 1}, 0, "The image's spacing (1, 0, 1) must"},
      {{1, 1, 1}, {1e-300, 1, 1}, 0, "The target spacing 1e-300 is too small: it makes 2e+300 pixels of 2 at 1"},
      {{1, 1, 1}, {1, 1, 1}, 7, "Unknown mode 7; 0 (linear) or 1 (nearest) is needed"},
  };
  for (const auto& c : cases) {
    const SharedImage image(filled(described(PixelFloat, {2, 2, 1}, c.spacing), [](int, int, int, int) { return 0; }));
    Tests::ExpectedLog log;
    EXPECT_EQ(resample(image, c.target, c.mode), nullptr);
    ASSERT_EQ(log.messages().size(), 1u);
    EXPECT_TRUE(log.contains(std::string("4 ImageResamplingAlgorithm: "))) << log.messages()[0];
    EXPECT_TRUE(log.contains(c.message)) << log.messages()[0];
  }
  Tests::ExpectedLog log;
  Resampling algorithm(nullptr, nullptr);
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_TRUE(log.contains("No input image given"));
}

} // namespace
} // namespace Kelvaris
