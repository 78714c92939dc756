#include "Lib/PngWriter.h"

#include "Lib/IntensityMask.h"
#include "support/PngPicture.h"
#include "support/Samples.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace Kelvaris {
namespace {

using PngWriter::Options;
using Tests::PngPicture;
using Tests::TemporaryFolder;

/// Sample components 0, 1, 2, ...
std::shared_ptr<SharedImage> ramp(int width, int height, int slices, int channels) {
  auto pixels = std::make_shared<TypedImage<unsigned char>>(width, height, slices, channels);
  for (std::size_t i = 0; i < pixels->size(); ++i)
    (*pixels)[i] = static_cast<unsigned char>(i);
  pixels->setSpacing({0.1, 0.25, 1.0});
  return std::make_shared<SharedImage>(pixels);
}

PngPicture written(const SharedImage& image, const Options& options = {}, int slice = 0) {
  const TemporaryFolder folder;
  PendingFile file(folder / "a.png");
  PngWriter::write(file, image, slice, options);
  file.commit();
  return Tests::readPng(folder / "a.png");
}

TEST(PngWriter, GrayKeepsLevelsRowOrderAndPhysicalSize) {
  const PngPicture picture = written(*ramp(3, 2, 2, 1), {.squarePixels = false}, 1);
  EXPECT_EQ(picture.width, 3);
  EXPECT_EQ(picture.colorType, PNG_COLOR_TYPE_GRAY);
  EXPECT_EQ(picture.samples, (std::vector<unsigned char>{6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(picture.densityX, 10000U);
  EXPECT_EQ(picture.densityY, 4000U);
}

/// A mask that goes by the place of a pixel, as that of a fan does.
class DiagonalMask : public Mask {
public:
  int deviceStrategy() const override { return 0; }
  void evaluate(const MemImage&, int x, int y, int, int count, unsigned char* valid) const override {
    for (int i = 0; i < count; ++i)
      valid[i] = x + i != y;
  }
};

TEST(PngWriter, MaskedPixelsAreTransparentOrOfTheGivenColour) {
  const struct {
    int channels;
    bool colored;
    int colorType;
    std::vector<unsigned char> samples; ///< of 2 x 2 pixels
  } table[] = {
      {1, false, PNG_COLOR_TYPE_GRAY_ALPHA, {0, 0, 1, 255, 2, 255, 3, 0}},
      {1, true, PNG_COLOR_TYPE_RGB, {90, 80, 70, 1, 1, 1, 2, 2, 2, 90, 80, 70}},
      {3, false, PNG_COLOR_TYPE_RGB_ALPHA, {0, 1, 2, 0, 3, 4, 5, 255, 6, 7, 8, 255, 9, 10, 11, 0}},
      {3, true, PNG_COLOR_TYPE_RGB, {90, 80, 70, 3, 4, 5, 6, 7, 8, 90, 80, 70}},
      {4, false, PNG_COLOR_TYPE_RGB_ALPHA, {0, 1, 2, 0, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0}},
      {4, true, PNG_COLOR_TYPE_RGB_ALPHA, {90, 80, 70, 255, 4, 5, 6, 7, 8, 9, 10, 11, 90, 80, 70, 255}},
  };
  for (const auto& c : table) {
    Options options{.squarePixels = false};
    if (c.colored) options.maskColor = {90, 80, 70};
    const auto image = ramp(2, 2, 1, c.channels);
    EXPECT_EQ(written(*image, options).channels, c.channels); // without a mask as it is
    image->setMask(std::make_shared<DiagonalMask>());
    const PngPicture picture = written(*image, options);
    EXPECT_EQ(picture.colorType, c.colorType) << c.channels << c.colored;
    EXPECT_EQ(picture.samples, c.samples) << c.channels << c.colored;
  }
}

/// An image of 8-bit pixels with the value of `f` at their centres (mm from the image's centre, rounded).
template <typename F>
std::shared_ptr<SharedImage> sampled(int width, int height, const Eigen::Vector2d& spacing, const F& f) {
  ImageDescriptor descriptor(PixelUInt8, width, height);
  descriptor.setSpacing({spacing.x(), spacing.y(), 1.0});
  return std::make_shared<SharedImage>(Tests::imageOf(descriptor, [&](int x, int y, int, int) {
    return std::lround(f((x + 0.5 - 0.5 * width) * spacing.x(), (y + 0.5 - 0.5 * height) * spacing.y()));
  }));
}

TEST(PngWriter, SquarePixelsShowTheSameAtTheSamePlaces) {
  const auto plane = [](double x, double y) { return 100.0 + 10.0 * x + 8.0 * y; };
  const struct {
    int width, height;
    Eigen::Vector2d spacing;
    int writtenWidth, writtenHeight;
  } table[] = {{20, 10, {0.25, 1.0}, 20, 40},
               {6, 9, {1.45, 1.0}, 9, 9}, // 8.7 columns
               {8, 8, {0.5, 0.51}, 8, 8},
               {1, 6, {3.0, 0.5}, 6, 6}};
  for (const auto& c : table) {
    SCOPED_TRACE(c.width);
    const double side = c.spacing.minCoeff();
    const PngPicture picture = written(*sampled(c.width, c.height, c.spacing, plane));
    ASSERT_EQ(std::pair(picture.width, picture.height), std::pair(c.writtenWidth, c.writtenHeight));
    EXPECT_EQ(picture.densityX, static_cast<png_uint_32>(std::lround(1000.0 / side)));
    // Beyond the outermost pixel centres the values stay.
    const auto place = [&](int i, int squares, int pixels, double spacing) {
      const double most = 0.5 * (pixels - 1) * spacing;
      return std::clamp((i + 0.5 - 0.5 * squares) * side, -most, most);
    };
    for (int j = 0; j < picture.height; ++j)
      for (int i = 0; i < picture.width; ++i) {
        const double x = place(i, picture.width, c.width, c.spacing.x());
        const double y = place(j, picture.height, c.height, c.spacing.y());
        EXPECT_NEAR(picture.at(i, j), plane(x, y), 1.0 + 1e-9) << i << ", " << j;
      }
  }
}

TEST(PngWriter, SquarePixelsKeepMaskedAndValidApart) {
  // Columns of 2 mm, the outer two masked by the value 0, and rows of 0.5 mm.
  const auto image = sampled(4, 3, {2.0, 0.5}, [](double x, double) { return std::abs(x) > 2.0 ? 0.0 : 200.0 + x; });
  image->setMask(std::make_shared<IntensityMask>(PixelUInt8, 0.0));
  const PngPicture picture = written(*image);
  ASSERT_EQ(picture.width, 16);
  for (int i = 0; i < 16; ++i) {
    const bool valid = i >= 4 && i < 12;
    EXPECT_EQ(picture.at(i, 1, 1), valid ? 255 : 0) << i;
    EXPECT_NEAR(picture.at(i, 1), valid ? std::clamp(200.0 + 0.5 * (i - 7.5), 199.0, 201.0) : 0.0, 0.51) << i;
  }
}

TEST(PngWriter, NoPhysicalSizeWhereThereIsNone) {
  for (const double spacing : {0.0, std::nan(""), 1e9, 1e-9, 1.0}) {
    ImageDescriptor descriptor(PixelUInt8, 2, 2);
    descriptor.setSpacing({1.0, spacing, 1.0});
    descriptor.setMetric(spacing != 1.0);
    EXPECT_FALSE(written(SharedImage(MemImage::create(descriptor))).hasDensity) << spacing;
  }
}

TEST(PngWriter, RefusesWhatIsNoPicture) {
  const TemporaryFolder folder;
  PendingFile file(folder / "a.png");
  for (const ImageDescriptor& descriptor : {ImageDescriptor(PixelInt16, 2, 2), ImageDescriptor(PixelUInt8, 2, 2, 1, 2)})
    EXPECT_THROW(PngWriter::checkSupported(descriptor), std::invalid_argument) << descriptor.toString();
  EXPECT_THROW(PngWriter::write(file, *ramp(2, 2, 2, 1), 2), std::out_of_range);
  EXPECT_THROW(PngWriter::write(file, *ramp(2, 2, 1, 1), 0, {.pixelSize = Eigen::Vector2d(1e-3, 1e3)}),
               std::invalid_argument);
}

} // namespace
} // namespace Kelvaris
