#include "Lib/PngWriter.h"

#include "Lib/IntensityMask.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <png.h>

#include <cmath>

namespace Kelvaris {
namespace {

using Tests::TemporaryFolder;

struct Picture {
  png_uint_32 width = 0, height = 0;
  int colorType = 0;
  bool hasDensity = false;
  png_uint_32 densityX = 0, densityY = 0;
  std::vector<unsigned char> samples;
};

Picture readPng(const std::filesystem::path& path) {
  Picture picture;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file);
  png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  picture.width = png_get_image_width(png, info);
  picture.height = png_get_image_height(png, info);
  picture.colorType = png_get_color_type(png, info);
  int unit = 0;
  picture.hasDensity = png_get_pHYs(png, info, &picture.densityX, &picture.densityY, &unit) != 0;
  for (png_uint_32 y = 0; y < picture.height; ++y)
    picture.samples.insert(picture.samples.end(), png_get_rows(png, info)[y],
                           png_get_rows(png, info)[y] + png_get_rowbytes(png, info));
  png_destroy_read_struct(&png, &info, nullptr);
  std::fclose(file);
  return picture;
}

/// Sample components 0, 1, 2, ...
std::shared_ptr<SharedImage> ramp(int width, int height, int slices, int channels) {
  auto pixels = std::make_shared<TypedImage<unsigned char>>(width, height, slices, channels);
  for (std::size_t i = 0; i < pixels->size(); ++i)
    (*pixels)[i] = static_cast<unsigned char>(i);
  pixels->setSpacing({0.1, 0.25, 1.0});
  return std::make_shared<SharedImage>(pixels);
}

Picture written(const SharedImage& image, int slice = 0, const std::optional<Eigen::Vector2d>& pixelSize = {}) {
  const TemporaryFolder folder;
  PendingFile file(folder / "a.png");
  PngWriter::write(file, image, slice, pixelSize);
  file.commit();
  return readPng(folder / "a.png");
}

TEST(PngWriter, GrayKeepsLevelsRowOrderAndPhysicalSize) {
  const Picture picture = written(*ramp(3, 2, 2, 1), 1);
  EXPECT_EQ(picture.width, 3U);
  EXPECT_EQ(picture.height, 2U);
  EXPECT_EQ(picture.colorType, PNG_COLOR_TYPE_GRAY);
  EXPECT_EQ(picture.samples, (std::vector<unsigned char>{6, 7, 8, 9, 10, 11}));
  ASSERT_TRUE(picture.hasDensity);
  EXPECT_EQ(picture.densityX, 10000U);
  EXPECT_EQ(picture.densityY, 4000U);
  EXPECT_EQ(written(*ramp(3, 2, 1, 1), 0, Eigen::Vector2d(0.5, 0.25)).densityX, 2000U);
  EXPECT_FALSE(written(*ramp(3, 2, 1, 1), 0, Eigen::Vector2d::Zero()).hasDensity);
}

TEST(PngWriter, MaskedPixelsAreTransparent) {
  const auto image = ramp(2, 2, 1, 1);
  image->setMask(std::make_shared<IntensityMask>(PixelUInt8, 0.0));
  const Picture picture = written(*image);
  EXPECT_EQ(picture.colorType, PNG_COLOR_TYPE_GRAY_ALPHA);
  EXPECT_EQ(picture.samples, (std::vector<unsigned char>{0, 0, 1, 255, 2, 255, 3, 255}));
}

TEST(PngWriter, ThreeAndFourChannelsAreColours) {
  EXPECT_EQ(written(*ramp(2, 1, 1, 3)).colorType, PNG_COLOR_TYPE_RGB);
  EXPECT_EQ(written(*ramp(2, 1, 1, 4)).samples, (std::vector<unsigned char>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(PngWriter, NoPhysicalSizeWhereThereIsNone) {
  for (const double spacing : {0.0, -1.0, std::nan(""), 1e9, 1e-9, std::numeric_limits<double>::infinity()}) {
    auto pixels = std::make_shared<TypedImage<unsigned char>>(2, 2);
    pixels->setSpacing({1.0, spacing, 1.0});
    EXPECT_FALSE(written(SharedImage(pixels)).hasDensity) << spacing;
  }
  ImageDescriptor descriptor(PixelUInt8, 2, 2);
  descriptor.setMetric(false);
  EXPECT_FALSE(written(SharedImage(std::make_shared<TypedImage<unsigned char>>(descriptor))).hasDensity);
}

TEST(PngWriter, RefusesWhatIsNoPicture) {
  const TemporaryFolder folder;
  PendingFile file(folder / "a.png");
  for (const ImageDescriptor& descriptor :
       {ImageDescriptor(PixelFloat, 2, 2), ImageDescriptor(PixelInt16, 2, 2), ImageDescriptor(PixelUInt8, 2, 2, 1, 2)})
    EXPECT_THROW(PngWriter::checkSupported(descriptor), std::invalid_argument) << descriptor.toString();
  EXPECT_THROW(PngWriter::write(file, *ramp(2, 2, 2, 1), 2), std::out_of_range);
}

} // namespace
} // namespace Kelvaris
