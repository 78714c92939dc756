#include "imaging/ScanConversionUltrafastImaging.h"

#include "Core/Resource.h"
#include "GL/AbstractInclude.h"
#include "GL/ContextManager.h"
#include "GL/RequireGL.h"
#include "Lib/IntensityMask.h"
#include "Stream/ImageStream.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "US/FanMask.h"
#include "US/FrameGeometryMetadata.h"
#include "US/GeometryCases.h"
#include "US/UltrasoundMetadata.h"
#include "US/UltrasoundSweep.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"
#include "reference/ScanConversion.h"
#include "support/ExpectedLog.h"
#include "support/IntensityMaskOf.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <random>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<Tests::GeometryCase> frames() {
  return {Tests::linearCase(38.1, 0, 40),      Tests::linearCase(38.1, 15, 40),   Tests::convexCase(28.5, 60, 120),
          Tests::convexCase(100, 10, 30),      Tests::convexCase(44, 0, 100),     Tests::steeredCase(28.5, 60, 20, 120),
          Tests::steeredCase(60, 10, -35, 50), Tests::sectorCase(45, 10, 150, 1), Tests::sectorCase(45, 10, 150, 0),
          Tests::sectorCase(60, 20, 100, 0.3)};
}

std::shared_ptr<SharedImage> share(std::shared_ptr<MemImage> pixels) {
  auto image = std::make_shared<SharedImage>(std::move(pixels));
  image->setModality(Data::Ultrasound);
  return image;
}

/// Spacing like that of beamformed images: lines across, mm along.
ImageDescriptor prescanDescriptor(int pixelType, int width, int height, double depth, int slices = 1,
                                  int channels = 1) {
  ImageDescriptor descriptor(pixelType, width, height, slices, channels);
  descriptor.setSpacing({1.0, depth / (height - 1), 1.0});
  return descriptor;
}

DataComponentList componentsOf(const FrameGeometry& geometry, bool scanConverted = false) {
  DataComponentList components;
  components.add<FrameGeometryMetadata>(geometry);
  components.add<UltrasoundMetadata>().scanConverted = scanConverted;
  return components;
}

const FrameGeometry& geometryOf(const DataComponentList& components) {
  return *components.get<FrameGeometryMetadata>()->frameGeometry();
}

/// Every sample by `value(column, row, slice, channel)`.
template <typename F> std::shared_ptr<MemImage> filled(const ImageDescriptor& descriptor, F&& value) {
  std::shared_ptr<MemImage> image = MemImage::create(descriptor);
  dispatchPixelType(descriptor.pixelType(), [&]<typename T>() {
    auto* sample = static_cast<T*>(image->data());
    for (int z = 0; z < descriptor.slices(); ++z)
      for (int y = 0; y < descriptor.height(); ++y)
        for (int x = 0; x < descriptor.width(); ++x)
          for (int c = 0; c < descriptor.channels(); ++c)
            *sample++ = static_cast<T>(value(x, y, z, c));
  });
  return image;
}

/// Where the centre of a pixel of the output lies, in mm: around the centre of the frame's box, row 0 at the top.
Eigen::Vector2d pixelInFrame(const ImageDescriptor& output, const Tests::FramePosition& position, double x, double y) {
  const auto [min, max] = Tests::frameBox(position);
  const double s = output.spacing().x();
  return 0.5 * (min + max) +
         Eigen::Vector2d((x + 0.5 - 0.5 * output.width()) * s, (y + 0.5 - 0.5 * output.height()) * s);
}

class ScanConversion : public testing::Test {
protected:
  ScanConversion() { Resource::addRepository(&m_repository); }

  static std::pair<std::shared_ptr<SharedImage>, DataComponentList> convert(const SharedImage& image,
                                                                            const FrameGeometry& geometry) {
    return ScanConversionUltrafastImaging(nullptr).processImage(image, componentsOf(geometry));
  }

private:
  Repository_KelvarisUSImgFormationPlugin m_repository;
};

/// How an output differs from the reference.
struct Comparison {
  int pixels = 0;            ///< compared, valid in both
  double largestError = 0.0; ///< of their values
  int differentlyMasked = 0; ///< valid in one only
  int farFromBorder = 0; ///< of those, more than one pixel away from any pixel that the reference has of the other kind
};

/// `isValid` tells which pre-scan pixels are valid, `isMasked` which output pixels aren't, `stored` what a value
/// becomes in the output. Pixels where a rounding decides are left out.
Comparison compare(const MemImage& prescan, const MemImage& output, const Tests::FramePosition& position,
                   const std::function<bool(int, int)>& isValid, const std::function<bool(int, int, int)>& isMasked,
                   const std::function<std::optional<double>(double)>& stored, bool masked) {
  const Tests::FrameInverse inverse(position);
  const Eigen::Vector2d first = pixelInFrame(output.descriptor(), position, 0, 0);
  const double s = output.descriptor().spacing().x();
  const int width = output.width(), height = output.height();
  std::vector<std::optional<Eigen::Vector2d>> uv(static_cast<std::size_t>(width * height));
  std::vector<char> undecided(uv.size()), valid(uv.size());
  const auto at = [&](int x, int y) { return static_cast<std::size_t>(y * width + x); };
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      auto& point = uv[at(x, y)];
      point = inverse(first + s * Eigen::Vector2d(x, y));
      if (point && !((point->array() >= 0).all() && (point->array() <= 1).all())) point.reset();
      undecided[at(x, y)] = point && masked && Tests::isBetweenPixels(prescan, *point, 1e-3);
      valid[at(x, y)] = point && Tests::sampleBilinear(prescan, *point, 0, 0, isValid).has_value();
    }
  Comparison result;
  for (int z = 0; z < output.slices(); ++z)
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        if (undecided[at(x, y)]) continue;
        const bool expected = valid[at(x, y)];
        if (isMasked(x, y, z) == expected) {
          ++result.differentlyMasked;
          bool border = false;
          for (int j = std::max(y - 1, 0); j <= std::min(y + 1, height - 1); ++j)
            for (int i = std::max(x - 1, 0); i <= std::min(x + 1, width - 1); ++i)
              border |= static_cast<bool>(valid[at(i, j)]) != expected;
          result.farFromBorder += !border;
        } else if (expected) {
          for (int c = 0; c < output.channels(); ++c) {
            const auto value = stored(*Tests::sampleBilinear(prescan, *uv[at(x, y)], z, c, isValid));
            if (!value) continue;
            ++result.pixels;
            result.largestError = std::max(result.largestError, std::abs(output.valueAsDouble(x, y, z, c) - *value));
          }
        }
      }
  return result;
}

class ScanConversionOf : public ScanConversion, public testing::WithParamInterface<Tests::GeometryCase> {};

INSTANTIATE_TEST_SUITE_P(Frames, ScanConversionOf, testing::ValuesIn(frames()),
                         [](const auto& test) { return test.param.geometry->type() + std::to_string(test.index); });

TEST_P(ScanConversionOf, IsBilinearInsideTheFrameAndNaNOutside) {
  KELVARIS_REQUIRE_GL();
  const FrameGeometry& geometry = *GetParam().geometry;
  std::mt19937 random(3);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  const auto prescan = filled(prescanDescriptor(PixelFloat, 64, 90, geometry.depth()),
                              [&](int, int, int, int) { return value(random); });
  const auto [image, components] = convert(*share(prescan), geometry);
  ASSERT_NE(image, nullptr);
  EXPECT_TRUE(image->hasForm(ImageForm::Gl));
  EXPECT_EQ(image->modality(), Data::Ultrasound);

  const ImageDescriptor& d = image->descriptor();
  const auto [min, max] = Tests::frameBox(GetParam().position);
  const double s = geometry.depth() / 89;
  EXPECT_NEAR(d.width(), std::ceil((max.x() - min.x()) / s), 1);
  EXPECT_NEAR(d.height(), std::ceil((max.y() - min.y()) / s), 1);
  EXPECT_EQ(d.spacing(), Eigen::Vector3d(s, s, 1.0));
  const FrameGeometry& converted = geometryOf(components);
  EXPECT_TRUE(converted.imgDesc().isApprox(d));
  EXPECT_TRUE(converted.imgDescPrescan().isApprox(prescan->descriptor()));
  EXPECT_LT((converted.offset().head<2>() + 0.5 * (min + max)).norm(), 1e-4 * geometry.depth());
  EXPECT_TRUE(components.get<UltrasoundMetadata>()->scanConverted);

  const auto output = image->mem();
  const auto isNaN = [&](int x, int y, int z) { return std::isnan(output->valueAsDouble(x, y, z, 0)); };
  const auto all = [](int, int) { return true; };
  const Comparison result = compare(
      *prescan, *output, GetParam().position, all, isNaN, [](double v) { return v; }, false);
  EXPECT_GT(result.pixels, 3000);
  EXPECT_LT(result.largestError, 1e-3 * 2.0);
  EXPECT_EQ(result.farFromBorder, 0);
  EXPECT_LT(result.differentlyMasked, 5);
  RecordProperty("largestError", std::to_string(result.largestError));

  // The mask of the output says the same as its values.
  const auto* const mask = dynamic_cast<const FanMask*>(image->mask().get());
  ASSERT_NE(mask, nullptr);
  EXPECT_TRUE(mask->geometry().isApprox(converted, 0.0, true));
  int different = 0;
  std::vector<unsigned char> valid(static_cast<std::size_t>(output->width()));
  for (int y = 0; y < output->height(); ++y) {
    mask->evaluate(*output, 0, y, 0, output->width(), valid.data());
    for (int x = 0; x < output->width(); ++x)
      different += (valid[static_cast<std::size_t>(x)] == 0) != isNaN(x, y, 0);
  }
  EXPECT_LT(different, 5);
}

TEST_P(ScanConversionOf, PutsATargetWhereItIs) {
  KELVARIS_REQUIRE_GL();
  const Tests::GeometryCase& c = GetParam();
  // Off the middle both ways, so that nothing mirrored or turned over passes.
  const Eigen::Vector2d target = c.position(0.71, 0.37);
  const int width = 200, height = 300;
  const double sigma = 0.02 * c.geometry->depth();
  const auto prescan =
      filled(prescanDescriptor(PixelFloat, width, height, c.geometry->depth()), [&](int x, int y, int, int) {
        const Eigen::Vector2d p = c.position((x + 0.5) / width, (y + 0.5) / height);
        return std::exp(-0.5 * (p - target).squaredNorm() / (sigma * sigma));
      });
  const auto [image, components] = convert(*share(prescan), *c.geometry);
  ASSERT_NE(image, nullptr);
  const auto output = image->mem();
  Eigen::Vector2d centroid(0, 0);
  double sum = 0.0;
  for (int y = 0; y < output->height(); ++y)
    for (int x = 0; x < output->width(); ++x) {
      const double value = output->valueAsDouble(x, y, 0, 0);
      if (!(value > 1e-3)) continue;
      centroid += value * Eigen::Vector2d(x, y);
      sum += value;
    }
  centroid /= sum;
  const Eigen::Vector2d found = pixelInFrame(output->descriptor(), c.position, centroid.x(), centroid.y());
  const double pixels = (found - target).norm() / output->descriptor().spacing().x();
  EXPECT_LT(pixels, 0.5) << found.transpose() << " instead of " << target.transpose();
  RecordProperty("pixels", std::to_string(pixels));
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

class ScanConversionTypes : public ScanConversion, public testing::WithParamInterface<TypeCase> {};

INSTANTIATE_TEST_SUITE_P(Types, ScanConversionTypes, testing::ValuesIn(kTypes),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(ScanConversionTypes, AreRoundedAndMaskedAsTold) {
  KELVARIS_REQUIRE_GL();
  const TypeCase& type = GetParam();
  const auto c = Tests::sectorCase(40, 10, 50, 0.5);
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
    std::vector<char> invalid(40 * 50);
    for (char& i : invalid)
      i = shape.masked && bad(random);
    const auto isValid = [&](int x, int y) { return invalid[static_cast<std::size_t>(y * 40 + x)] == 0; };
    const auto prescan =
        filled(prescanDescriptor(type.pixelType, 40, 50, c.geometry->depth(), shape.slices, shape.channels),
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
    EXPECT_EQ(input->hasForm(ImageForm::Gl), false);

    const auto mask = image->mask();
    ASSERT_NE(mask, nullptr);
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
        const double v = output->valueAsDouble(x, y, z, k);
        wrongOutside += v != type.outputMask && !(std::isnan(v) && std::isnan(type.outputMask));
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
    const Comparison result = compare(*prescan, *output, c.position, isValid, isMasked, stored, shape.masked);
    EXPECT_GT(result.pixels, 1000);
    EXPECT_LE(result.largestError, type.tolerance * (type.max - type.min));
    EXPECT_EQ(result.farFromBorder, 0);
    EXPECT_LT(result.differentlyMasked, 5);
    EXPECT_LT(wrongOutside, 5) << "the mask's value stands in all channels";
  }
}

} // namespace
} // namespace Kelvaris::US
