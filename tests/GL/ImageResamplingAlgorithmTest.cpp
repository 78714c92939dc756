#include "GL/ImageResamplingAlgorithm.h"

#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "Lib/IntensityMask.h"
#include "reference/Lines.h"
#include "support/ExpectedLog.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

namespace Kelvaris {
namespace {

using Resampling = ImageResamplingAlgorithm;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN(), kInfinity = std::numeric_limits<double>::infinity();

ImageDescriptor described(int pixelType, Eigen::Vector3i extent, Eigen::Vector3d spacing, int channels = 1) {
  ImageDescriptor descriptor(pixelType, extent.x(), extent.y(), extent.z(), channels);
  descriptor.setSpacing(spacing);
  return descriptor;
}

std::shared_ptr<SharedImage> resample(const SharedImage& image, const Eigen::Vector3d& spacing,
                                      int mode = Resampling::Linear) {
  Resampling algorithm(nullptr, nullptr);
  algorithm.setTargetSpacing(spacing);
  algorithm.mode = mode;
  return algorithm.processImage(image, {}).first;
}

/// The same image in main memory and, if there is OpenGL, as a texture.
std::vector<std::shared_ptr<SharedImage>> forms(const std::shared_ptr<MemImage>& image) {
  std::vector<std::shared_ptr<SharedImage>> all = {std::make_shared<SharedImage>(image)};
  if (GL::ContextManager::get().isAvailable())
    all.push_back(std::make_shared<SharedImage>(std::make_shared<GlImage>(*image)));
  return all;
}

TEST(ImageResampling, BothPathsAgreeWithInterpolationInDoublePrecisionAndKeepTheExtent) {
  const struct {
    const char* what;
    Eigen::Vector3i extent;
    Eigen::Vector3d spacing, target;
    Eigen::Vector3i expected;
  } cases[] = {
      {"half the pixels", {4, 12, 1}, {0.5, 0.1, 1}, {0.5, 0.2, 1}, {4, 6, 1}},
      {"half of an odd number goes up", {3, 7, 1}, {1, 0.1, 1}, {1, 0.2, 1}, {3, 4, 1}},
      {"more pixels, a ratio that isn't whole", {5, 9, 1}, {0.3, 0.9, 1}, {0.25, 0.31, 1}, {6, 26, 1}},
      {"all axes of a volume", {6, 5, 4}, {0.5, 1, 2}, {0.75, 0.4, 1.5}, {4, 13, 5}},
      {"never less than a pixel", {3, 4, 6}, {1, 1, 2}, {50, 1, 100}, {1, 4, 1}},
  };
  for (const auto& c : cases)
    for (const int pixelType : {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelFloat, PixelHalf})
      for (const int mode : {Resampling::Linear, Resampling::Nearest})
        for (const auto& image : forms(Tests::noiseImage(described(pixelType, c.extent, c.spacing, 3)))) {
          SCOPED_TRACE(c.what);
          const auto output = resample(*image, c.target, mode);
          ASSERT_NE(output, nullptr);
          EXPECT_EQ(output->hasForm(ImageForm::Gl), image->hasForm(ImageForm::Gl) && pixelType != PixelInt32);
          const ImageDescriptor& d = output->descriptor();
          ASSERT_EQ(d.dimensions(), c.expected);
          EXPECT_TRUE(d.spacing()
                          .cwiseProduct(c.expected.cast<double>())
                          .isApprox(c.spacing.cwiseProduct(c.extent.cast<double>()), 1e-12));
          const auto input = image->mem();
          const double error = Tests::worstError(*output->mem(), [&](int x, int y, int z, int channel) {
            Eigen::Vector3d place = Tests::placeIn(c.extent, c.expected, {x, y, z});
            if (mode == Resampling::Nearest) place = (place.array() + 0.5 + 1e-9).floor(); // the later of two
            return Tests::stored(Tests::interpolated(*input, place, channel), pixelType);
          });
          const double rounding = pixelType == PixelFloat ? 1e-4 : pixelType == PixelHalf ? 0.0626 : 1.0;
          EXPECT_LE(error, mode == Resampling::Nearest ? 0.0 : rounding) << d.toString();
        }
}

TEST(ImageResampling, KeepsWhatItMustNotChange) {
  const std::vector<double> values = {10, kInfinity, 30, 40, kNan, kNan},
                            twice = {10, 10, kInfinity, kInfinity, 30, 32.5, 37.5, kNan, kNan, kNan, kNan, kNan};
  const auto in = [](const std::vector<double>& column) {
    return [&column](int, int y, int, int) { return column[static_cast<std::size_t>(y)]; };
  };
  for (const auto& input : forms(Tests::imageOf(described(PixelFloat, {1, 6, 1}, {0.3, 0.7, 1}), in(values)))) {
    input->setModality(Data::Ultrasound);
    input->setMatrix(Eigen::Matrix4d::Identity() * 2.0);
    const auto same = resample(*input, {0.3, 0.7, 1});
    EXPECT_EQ(Tests::worstError(*same->mem(), in(values)), 0.0) << "the same spacing passes samples through";
    EXPECT_EQ(same->modality(), Data::Ultrasound);
    EXPECT_EQ(same->matrix(), input->matrix());
    input->setMask(std::make_shared<IntensityMask>(PixelFloat, kInfinity));
    const auto masked = resample(*input, {0.3, 0.35, 1});
    EXPECT_EQ(masked->mask(), input->mask());
    EXPECT_EQ(Tests::worstError(*masked->mem(), in(twice)), 0.0) << "invalid pixels stay so, and out of the sums";
  }
}

TEST(ImageResampling, ComputesASetWithItsState) {
  SharedImageSet images;
  images.add(std::make_shared<SharedImage>(Tests::noiseImage(described(PixelInt16, {2, 4, 1}, {1, 1, 1}))), 5.0);
  const SharedImage reference(described(PixelFloat, {1, 1, 1}, {1, 2, 1}));
  Resampling algorithm(&images, &reference);
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Success);
  const auto output = algorithm.takeOutput().extract<SharedImageSet>();
  EXPECT_EQ(output->timestamp(0), 5.0);
  EXPECT_EQ(output->get(0).descriptor().height(), 2);
}

TEST(ImageResampling, SaysWhatIsWrong) {
  const struct {
    Eigen::Vector3d spacing, target;
    int mode;
    const char* message;
  } cases[] = {
      {{1, 1, 1}, {kNan, 1, kInfinity}, 0, "The target spacing (nan, 1, inf) must be positive and finite"},
      {{1, 0, 1}, {1, 1, 1}, 0, "The image's spacing (1, 0, 1) must be positive and finite"},
      {{1, 1, 1}, {1e-300, 1, 1}, 0, "The target spacing 1e-300 is too small: it makes 2e+300 pixels of 2 at 1"},
      {{1, 1, 1}, {1, 1, 1}, 7, "Unknown mode 7; 0 (linear) or 1 (nearest) is needed"},
  };
  for (const auto& c : cases) {
    const Tests::ExpectedLog log;
    EXPECT_EQ(resample(SharedImage(described(PixelFloat, {2, 2, 1}, c.spacing)), c.target, c.mode), nullptr);
    EXPECT_EQ(log.messages(), std::vector<std::string>{std::string("4 ImageResamplingAlgorithm: ") + c.message});
  }
}

} // namespace
} // namespace Kelvaris
