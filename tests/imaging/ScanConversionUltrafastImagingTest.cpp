#include "imaging/ScanConversionCases.h"

#include "US/FanMask.h"
#include "US/GeometryCases.h"
#include "support/IntensityMaskOf.h"

namespace Kelvaris::US {
namespace {

using namespace Tests;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<GeometryCase> frames() {
  return {linearCase(38.1, 0, 40),      linearCase(38.1, 15, 40),   convexCase(28.5, 60, 120),
          convexCase(100, 10, 30),      convexCase(44, 0, 100),     steeredCase(28.5, 60, 20, 120),
          steeredCase(60, 10, -35, 50), sectorCase(45, 10, 150, 1), sectorCase(45, 10, 150, 0),
          sectorCase(60, 20, 100, 0.3)};
}

/// Where the centre of a pixel of the output lies, in mm: around the centre of the frame's box, row 0 at the top.
Eigen::Vector2d pixelInFrame(const ImageDescriptor& output, const FrameGeometry& frame, double x, double y) {
  const Eigen::Vector2d fromCentre(x + 0.5 - 0.5 * output.width(), y + 0.5 - 0.5 * output.height());
  return frame.bounds().center() + fromCentre * output.spacing().x();
}

/// (u, v) in pixels, 0 at the first pixel's centre.
Eigen::Vector2d pixelPosition(const MemImage& image, const Eigen::Vector2d& uv) {
  return {std::clamp(uv.x() * image.width() - 0.5, 0.0, image.width() - 1.0),
          std::clamp(uv.y() * image.height() - 0.5, 0.0, image.height() - 1.0)};
}

/// Bilinear between pixel centres, clamped at the edges, invalid pixels left out and the weights scaled. Nothing where
/// the nearest pixel is invalid.
std::optional<double> sampleBilinear(const MemImage& image, const Eigen::Vector2d& uv, int slice, int channel,
                                     const std::function<bool(int column, int row)>& isValid) {
  const Eigen::Vector2d p = pixelPosition(image, uv);
  if (!isValid(static_cast<int>(std::floor(p.x() + 0.5)), static_cast<int>(std::floor(p.y() + 0.5))))
    return std::nullopt;
  double sum = 0.0, weights = 0.0;
  const int left = static_cast<int>(p.x()), top = static_cast<int>(p.y());
  for (int row = top; row <= std::min(top + 1, image.height() - 1); ++row)
    for (int column = left; column <= std::min(left + 1, image.width() - 1); ++column) {
      const double weight = (1.0 - std::abs(p.x() - column)) * (1.0 - std::abs(p.y() - row));
      if (weight == 0.0 || !isValid(column, row)) continue;
      sum += weight * image.valueAsDouble(column, row, slice, channel);
      weights += weight;
    }
  return sum / weights;
}

/// How an output differs from the reference.
struct Comparison {
  int pixels = 0;            ///< compared, valid in both
  double largestError = 0.0; ///< of their values
  int differentlyMasked = 0; ///< valid in one only
  int farFromBorder = 0; ///< of those, more than one pixel away from any pixel that the reference has of the other kind
};

/// `isValid` tells which pre-scan pixels are valid, `isMasked` which output pixels aren't, `stored` what a value
/// becomes in the output. Pixels where a rounding decides are left out.
Comparison compare(const MemImage& prescan, const MemImage& output, const FrameGeometry& frame,
                   const std::function<bool(int, int)>& isValid, const std::function<bool(int, int, int)>& isMasked,
                   const std::function<std::optional<double>(double)>& stored, bool masked) {
  const int width = output.width(), height = output.height();
  using Flags = Eigen::Array<bool, Eigen::Dynamic, Eigen::Dynamic>;
  Eigen::ArrayXXd u(width, height), v(width, height);
  Flags undecided = Flags::Zero(width, height), valid = Flags::Zero(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const Eigen::Vector2d uv =
          frame.convertPoint(pixelInFrame(output.descriptor(), frame, x, y), FrameGeometry::PhysicalToNormalized);
      if (!((uv.array() >= 0).all() && (uv.array() <= 1).all())) continue;
      u(x, y) = uv.x();
      v(x, y) = uv.y();
      const Eigen::Array2d p = pixelPosition(prescan, uv);
      undecided(x, y) = masked && ((p - p.floor() - 0.5).abs() < 1e-3).any(); // between two pixels
      valid(x, y) = sampleBilinear(prescan, uv, 0, 0, isValid).has_value();
    }
  Comparison result;
  for (int z = 0; z < output.slices(); ++z)
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        if (undecided(x, y)) continue;
        const bool expected = valid(x, y);
        if (isMasked(x, y, z) == expected) {
          ++result.differentlyMasked;
          const int left = std::max(x - 1, 0), top = std::max(y - 1, 0);
          const auto around = valid.block(left, top, std::min(x + 2, width) - left, std::min(y + 2, height) - top);
          result.farFromBorder += expected ? around.all() : !around.any();
        } else if (expected) {
          for (int c = 0; c < output.channels(); ++c) {
            const auto value = stored(*sampleBilinear(prescan, {u(x, y), v(x, y)}, z, c, isValid));
            if (!value) continue;
            ++result.pixels;
            result.largestError = std::max(result.largestError, std::abs(output.valueAsDouble(x, y, z, c) - *value));
          }
        }
      }
  return result;
}

class ScanConversionOf : public ScanConversionWithGL, public testing::WithParamInterface<GeometryCase> {};

INSTANTIATE_TEST_SUITE_P(Frames, ScanConversionOf, testing::ValuesIn(frames()),
                         [](const auto& test) { return test.param.geometry->type() + std::to_string(test.index); });

TEST_P(ScanConversionOf, IsBilinearInsideTheFrameAndNaNOutside) {
  const FrameGeometry& geometry = *GetParam().geometry;
  std::mt19937 random(3);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  const auto prescan = imageOf(prescanDescriptor(PixelFloat, 64, 90, geometry.depth()),
                               [&](int, int, int, int) { return value(random); });
  const auto [image, components] = convert(*share(prescan), geometry);
  ASSERT_NE(image, nullptr);
  EXPECT_TRUE(image->hasForm(ImageForm::Gl));
  EXPECT_EQ(image->modality(), Data::Ultrasound);

  const ImageDescriptor& d = image->descriptor();
  const Geometry::AlignedBox box = geometry.bounds();
  const double s = geometry.depth() / 89;
  EXPECT_NEAR(d.width(), std::ceil(box.extent().x() / s), 1);
  EXPECT_NEAR(d.height(), std::ceil(box.extent().y() / s), 1);
  EXPECT_EQ(d.spacing(), Eigen::Vector3d(s, s, 1.0));
  const FrameGeometry& converted = geometryOf(components);
  EXPECT_TRUE(converted.imgDesc().isApprox(d));
  EXPECT_TRUE(converted.imgDescPrescan().isApprox(prescan->descriptor()));
  EXPECT_LT((converted.offset().head<2>() + box.center()).norm(), 1e-4 * geometry.depth());
  EXPECT_TRUE(components.get<UltrasoundMetadata>()->scanConverted);

  const auto output = image->mem();
  const auto isNaN = [&](int x, int y, int z) { return std::isnan(output->valueAsDouble(x, y, z, 0)); };
  const auto all = [](int, int) { return true; };
  const Comparison result = compare(
      *prescan, *output, geometry, all, isNaN, [](double v) { return v; }, false);
  EXPECT_GT(result.pixels, 3000);
  EXPECT_LT(result.largestError, 1e-3 * 2.0);
  EXPECT_EQ(result.farFromBorder, 0);
  EXPECT_LT(result.differentlyMasked, 5);

  const auto* const mask = dynamic_cast<const FanMask*>(image->mask().get());
  ASSERT_NE(mask, nullptr);
  EXPECT_TRUE(mask->geometry().isApprox(converted, 0.0, true));
}

struct TypeCase {
  const char* name;
  int pixelType;
  double min, max;   ///< of the values
  double inputMask;  ///< of a masked input
  double outputMask; ///< outside of the frame
  double beside;     ///< what a valid outputMask becomes in a masked image
  double tolerance;  ///< relative to the range
};

const TypeCase kTypes[] = {
    {"int8", PixelInt8, -128, 127, -128, 0, 1, 0},
    {"uint8", PixelUInt8, 0, 255, 0, 0, 1, 0},
    {"uint8MaskedBy255", PixelUInt8, 0, 9, 255, 0, 1, 0},
    {"int16", PixelInt16, -32768, 32767, -32768, -32768, -32767, 1e-4},
    {"uint16", PixelUInt16, 0, 65535, 65535, 0, 1, 1e-4},
    {"int32", PixelInt32, -2e6, 2e6, 7, 0, 1, 1e-4},
    {"uint32", PixelUInt32, 0, 2e6, 7, 0, 1, 1e-4},
    {"float", PixelFloat, -50, 0, kNaN, kNaN, kNaN, 1e-5},
    {"double", PixelDouble, -50, 50, kNaN, 0, std::numeric_limits<float>::min(), 1e-5},
    {"half", PixelHalf, -50, 50, kNaN, 0, std::ldexp(1.0, -14), 1e-3},
};

class ScanConversionTypes : public ScanConversionWithGL, public testing::WithParamInterface<TypeCase> {};

INSTANTIATE_TEST_SUITE_P(Types, ScanConversionTypes, testing::ValuesIn(kTypes),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(ScanConversionTypes, AreRoundedAndMaskedAsTold) {
  const TypeCase& type = GetParam();
  const auto c = sectorCase(40, 10, 50, 0.5);
  const bool isFloat = type.pixelType == PixelFloat || type.pixelType == PixelDouble || type.pixelType == PixelHalf;
  struct Shape {
    int channels, slices;
    bool masked;
  };
  for (const Shape& shape : {Shape{1, 1, false}, Shape{1, 1, true}, Shape{2, 3, true}, Shape{3, 1, false},
                             Shape{3, 1, true}, Shape{4, 2, false}}) {
    SCOPED_TRACE(fmt::format("{} channels, {} slices, {}", shape.channels, shape.slices, shape.masked));
    std::mt19937 random(5);
    std::uniform_real_distribution<double> value(type.min, type.max);
    std::bernoulli_distribution bad(0.1);
    Eigen::Array<bool, 40, 50> invalid;
    for (bool& i : invalid.reshaped())
      i = shape.masked && bad(random);
    const auto isValid = [&](int x, int y) { return !invalid(x, y); };
    const auto prescan =
        imageOf(prescanDescriptor(type.pixelType, 40, 50, c.geometry->depth(), shape.slices, shape.channels),
                [&](int x, int y, int, int channel) {
                  if (!isValid(x, y) && channel == shape.channels - 1) return type.inputMask;
                  double v = value(random);
                  if (!isFloat) v = std::round(v);
                  return shape.masked && v == type.inputMask ? std::round(0.5 * (type.min + type.max)) : v;
                });
    const auto input = share(prescan);
    if (shape.masked) input->setMask(std::make_shared<IntensityMask>(type.pixelType, type.inputMask));
    const auto [image, components] = convert(*input, *c.geometry);
    ASSERT_NE(image, nullptr);
    const auto output = image->mem();
    ASSERT_EQ(output->descriptor().pixelType(), type.pixelType);
    ASSERT_EQ(output->channels(), shape.channels);
    ASSERT_EQ(output->slices(), shape.slices);
    EXPECT_FALSE(input->hasForm(ImageForm::Gl));
    const auto mask = image->mask();
    EXPECT_EQ(dynamic_cast<const FanMask*>(mask.get()) != nullptr, !shape.masked);
    if (shape.masked) {
      EXPECT_EQ(intensityMask(*image).pixelType(), type.pixelType);
      EXPECT_TRUE(intensityMask(*image).isMasked(type.outputMask));
    }
    int wrongOutside = 0;
    const auto isMasked = [&](int x, int y, int z) {
      unsigned char valid = 0;
      mask->evaluate(*output, x, y, z, 1, &valid);
      for (int k = 0; k < shape.channels && valid == 0; ++k) {
        wrongOutside += !isSame(output->valueAsDouble(x, y, z, k), type.outputMask);
      }
      return valid == 0;
    };
    // Of several channels, one that is invalid takes the pixel with it.
    const auto stored = [&](double v) -> std::optional<double> {
      if (isFloat) return shape.masked && v == type.outputMask ? type.beside : v;
      if (type.tolerance == 0 && std::abs(std::abs(v) - std::floor(std::abs(v)) - 0.5) < 0.02) return std::nullopt;
      const double rounded = std::round(v);
      return shape.masked && rounded == type.outputMask ? type.beside : rounded;
    };
    const Comparison result = compare(*prescan, *output, *c.geometry, isValid, isMasked, stored, shape.masked);
    EXPECT_GT(result.pixels, 1000);
    EXPECT_LE(result.largestError, type.tolerance * (type.max - type.min));
    EXPECT_EQ(result.farFromBorder, 0);
    EXPECT_LT(result.differentlyMasked, 5);
    EXPECT_LT(wrongOutside, 5) << "the mask's value stands in all channels";
  }
}

/// The mean of four pre-scan pixels: one output pixel in the middle of them.
TEST_F(ScanConversionWithGL, RoundsHalvesAwayFromZeroAndLeavesOutInvalidPixels) {
  const struct {
    const char* what;
    int pixelType;
    double pixels[4]; ///< left and right of row 0, then of row 1, which is the nearest of all
    std::optional<double> mask;
    double expected;
  } cases[] = {
      {"up", PixelInt16, {0, 1, 1, 0}, {}, 1},
      {"no tie to even", PixelUInt8, {2, 3, 2, 3}, {}, 3},
      {"last odd number of 24 bits", PixelInt32, {16777215, 16777215, 16777215, 16777215}, {}, 16777215},
      {"no rounding of floats", PixelFloat, {1, 2, 3, 4}, {}, 2.5},
      {"three valid", PixelUInt8, {7, 3, 6, 9}, 7, 6},
      {"nearest invalid", PixelUInt8, {3, 6, 9, 7}, 7, 0},
      {"a valid 0 beside the mask's", PixelUInt8, {0, 0, 255, 0}, 255, 1},
      {"rounded to the mask's", PixelInt8, {0, -1, 0, 0}, 100, 1},
      {"NaN takes no part", PixelFloat, {kNaN, 2, 3, 4}, kNaN, 3},
      {"a masked number becomes NaN", PixelFloat, {1, 2, 3, -1}, -1, kNaN},
  };
  FrameGeometryLinear geometry;
  geometry.setWidth(2.0);
  geometry.setDepth(2.0);
  geometry.setOffset({0.0, -1.0, 0.0});
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    geometry.setImgDesc(ImageDescriptor(c.pixelType, 1, 1));
    const auto input =
        share(imageOf(ImageDescriptor(c.pixelType, 2, 2), [&](int x, int y, int, int) { return c.pixels[2 * y + x]; }));
    if (c.mask) input->setMask(std::make_shared<IntensityMask>(c.pixelType, *c.mask));
    const auto [image, components] = convert(*input, geometry);
    ASSERT_NE(image, nullptr);
    EXPECT_PRED2(isSame, image->mem()->valueAsDouble(0, 0, 0, 0), c.expected);
  }
}

} // namespace
} // namespace Kelvaris::US
