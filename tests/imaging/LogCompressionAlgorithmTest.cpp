#include "imaging/LogCompressionAlgorithm.h"

#include "GL/ContextManager.h"
#include "US/FanMask.h"
#include "US/FrameGeometryMetadata.h"
#include "US/GeometryCases.h"
#include "support/ExpectedLog.h"
#include "support/IntensityMaskOf.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <thread>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::isSame;
using Parameters = LogCompressionAlgorithm::Parameters;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

template <typename T>
std::shared_ptr<SharedImage> makeImage(const std::vector<double>& samples, int channels = 1,
                                       std::optional<double> masked = std::nullopt) {
  const int pixels = static_cast<int>(samples.size()) / channels;
  auto image = std::make_shared<TypedImage<T>>(pixels, 1, 1, channels);
  for (std::size_t i = 0; i < samples.size(); ++i)
    (*image)[i] = static_cast<T>(samples[i]);
  auto shared = std::make_shared<SharedImage>(image);
  if (masked) shared->setMask(std::make_shared<IntensityMask>(pixelTypeOf<T>(), *masked));
  return shared;
}

std::vector<double> valuesOf(const SharedImage& image) {
  std::vector<double> values;
  const auto mem = image.mem();
  Kelvaris::Tests::forEachSample(mem->descriptor(),
                                 [&](int x, int y, int z, int) { values.push_back(mem->valueAsDouble(x, y, z, 0)); });
  return values;
}

/// Calls run(isShaded) once in main memory and, on a machine with OpenGL, once with a context: then shaders evaluate
/// what a texture can hold.
template <typename Run> void onBothEvaluators(const Run& run) {
  run(false);
  if (!GL::ContextManager::get().isAvailable()) return;
  const GL::ContextManager::ActivationGuard guard;
  run(true);
}

/// The mapping on its own, with wider arithmetic and another logarithm; levels before they are rounded.
double expectedValue(const std::vector<double>& pixel, const Parameters& p, std::optional<double> masked) {
  long double power = 0.0L;
  for (const double x : pixel)
    power += static_cast<long double>(x) * x;
  const long double ratio =
      std::max(std::sqrt(power), 1.1754944e-37L) / static_cast<long double>(static_cast<float>(p.referenceAmplitude));
  const long double range = p.dynamicRange, dB = std::clamp(20.0L * std::log10(ratio), -range, 0.0L);
  const bool isInvalid = masked && std::count(pixel.begin(), pixel.end(), *masked) > 0;
  if (!p.normalizeEnvelope) return isInvalid ? kNaN : static_cast<double>(dB);
  if (isInvalid) return 0.0;
  return static_cast<double>(masked ? (dB + range) * (254.0L / range) + 1.0L : (dB + range) * (255.0L / range));
}

template <typename T> class LogCompressionOf : public ::testing::Test {};
using SampleTypes =
    ::testing::Types<signed char, unsigned char, short, unsigned short, int, unsigned int, float, double>;
TYPED_TEST_SUITE(LogCompressionOf, SampleTypes);

TYPED_TEST(LogCompressionOf, AgreesWithTheFormulaForAllOutputs) {
  std::mt19937 random(7);
  const double top = std::is_floating_point_v<TypeParam>
                         ? 3000.0
                         : std::min(3000.0, static_cast<double>(std::numeric_limits<TypeParam>::max()));
  std::uniform_real_distribution<double> exponent(-1.0, std::log10(top));
  constexpr int pixels = 5003; // several blocks, and no multiple of the lanes
  const double invalid = std::is_signed_v<TypeParam> ? -77.0 : 77.0;
  const bool fitsTexture = sizeof(TypeParam) <= 2 || std::is_same_v<TypeParam, float>;
  for (const int channels : {1, 2}) {
    std::vector<double> samples;
    for (int i = 0; i < pixels * channels; ++i) {
      const double size = std::pow(10.0, exponent(random));
      const double sample = std::is_signed_v<TypeParam> && random() % 2 == 0 ? -size : size;
      samples.push_back(static_cast<double>(static_cast<TypeParam>(random() % 17 == 0 ? invalid : sample)));
    }
    const auto check = [&](std::optional<double> masked, const Parameters& p, bool isShaded) {
      SCOPED_TRACE(testing::Message() << channels << " channels, masked " << masked.has_value() << ", range "
                                      << p.dynamicRange << ", shaded " << isShaded);
      const auto result = LogCompressionAlgorithm::logCompression(*makeImage<TypeParam>(samples, channels, masked), p);
      ASSERT_EQ(result->hasForm(ImageForm::Gl), isShaded && fitsTexture);
      ASSERT_EQ(result->descriptor().pixelType(), p.normalizeEnvelope ? PixelUInt8 : PixelFloat);
      const std::vector<double> values = valuesOf(*result);
      ASSERT_EQ(values.size(), static_cast<std::size_t>(pixels));
      int wrong = 0;
      for (std::size_t i = 0; i < values.size(); ++i) {
        const auto first = samples.begin() + static_cast<int>(i) * channels;
        const double expected = expectedValue({first, first + channels}, p, masked);
        const double decibels =
            (result->hasForm(ImageForm::Gl) ? 1e-5 * p.dynamicRange : 4e-6 / 50) * std::max(1.0, std::abs(values[i]));
        const double levels = result->hasForm(ImageForm::Gl) ? 1.5 : 0.5 + 1e-12;
        wrong += !isSame(values[i], expected) &&
                 !(std::abs(values[i] - expected) <= (p.normalizeEnvelope ? levels : decibels));
        if (masked && p.normalizeEnvelope) wrong += (values[i] == 0.0) != (expected == 0.0);
      }
      EXPECT_EQ(wrong, 0);
      ASSERT_EQ(result->mask() != nullptr, masked.has_value());
      if (masked) {
        EXPECT_EQ(intensityMask(*result).pixelType(), result->descriptor().pixelType());
        EXPECT_TRUE(intensityMask(*result).isMasked(p.normalizeEnvelope ? 0.0 : kNaN));
      }
    };
    for (const auto& masked : {std::optional<double>(), std::optional(invalid)})
      for (const Parameters& p : {Parameters{50.0, 1000.0, true}, Parameters{50.0, 1000.0, false},
                                  Parameters{33.3, 120.7, true}, Parameters{91.0, 2.5, false}})
        onBothEvaluators([&](bool isShaded) { check(masked, p, isShaded); });
  }
}

TEST(LogCompressionTest, MapsTheSamplesThatDecideExactly) {
  const struct {
    const char* what;
    std::vector<double> pixel;
    std::optional<double> masked;
    Parameters parameters;
    double expected;
  } cases[] = {
      {"zero, levels", {0.0}, {}, {50.0, 1.0, true}, 0.0},
      {"zero, levels with a mask", {0.0}, -1.0, {50.0, 1.0, true}, 1.0},
      {"zero, decibels", {0.0}, {}, {50.0, 1.0, false}, -50.0},
      {"zero in a range that holds it", {0.0}, {}, {1000.0, 1.0, false}, 20.0 * std::log10(1.1754944e-37)},
      {"at the reference, decibels", {2.5}, {}, {50.0, 2.5, false}, 0.0},
      {"at the reference, levels", {-2.5}, {}, {50.0, 2.5, true}, 255.0},
      {"one component masked", {3.0, -1.0}, -1.0, {50.0, 5.0, true}, 0.0},
      {"one component masked, decibels", {3.0, -1.0}, -1.0, {50.0, 5.0, false}, kNaN},
      {"a decade below, on the border of two levels", {100.0}, {}, {40.0, 1000.0, true}, 128.0},
      {"NaN, levels", {kNaN}, {}, {50.0, 1.0, true}, 0.0},
      {"NaN, decibels", {kNaN}, {}, {50.0, 1.0, false}, kNaN},
      {"infinity", {-kInfinity}, {}, {50.0, 1.0, true}, 255.0},
      {"no range: 0 / 0", {0.5}, {}, {0.0, 1.0, true}, 0.0},
      {"a reference of zero", {0.5}, {}, {50.0, 0.0, true}, 255.0},
      {"a negative reference", {0.5}, {}, {50.0, -1.0, false}, kNaN},
  };
  for (const auto& c : cases)
    onBothEvaluators([&](bool isShaded) {
      const int channels = static_cast<int>(c.pixel.size());
      const auto image =
          isShaded ? makeImage<float>(c.pixel, channels, c.masked) : makeImage<double>(c.pixel, channels, c.masked);
      const auto result = LogCompressionAlgorithm::logCompression(*image, c.parameters);
      EXPECT_EQ(result->hasForm(ImageForm::Gl), isShaded);
      const double value = valuesOf(*result).at(0);
      const double expected = c.parameters.normalizeEnvelope ? c.expected : static_cast<float>(c.expected);
      const double tolerance = !isShaded ? 0.0 : c.parameters.normalizeEnvelope ? 1.0 : 1e-5 * std::abs(expected);
      EXPECT_TRUE(isSame(value, expected) || std::abs(value - expected) <= tolerance)
          << c.what << ": " << value << ", expected " << expected;
    });
  const auto narrowed = LogCompressionAlgorithm::logCompression(*makeImage<double>({0.1}), {1e-9, 0.1, false});
  EXPECT_EQ(valuesOf(*narrowed).at(0), -1e-9f) << "0.1 is less than the float next to it, which is the reference";
}

TEST(LogCompressionTest, AMaskOfAnyKindDecidesWhatIsInvalid) {
  /// Calls every third column invalid; shaders don't know it.
  struct EveryThird : Mask {
    int deviceStrategy() const override { return 0; }
    void evaluate(const MemImage&, int x, int, int, int count, unsigned char* valid) const override {
      for (int i = 0; i < count; ++i)
        valid[i] = (x + i) % 3 != 0;
    }
  };
  const auto image = makeImage<short>(std::vector<double>(10, 0.0));
  image->setMask(std::make_shared<EveryThird>());
  onBothEvaluators([&](bool) {
    const auto result = LogCompressionAlgorithm::logCompression(*image, Parameters());
    EXPECT_EQ(valuesOf(*result), (std::vector<double>{0, 1, 1, 0, 1, 1, 0, 1, 1, 0}));
    EXPECT_TRUE(intensityMask(*result).isMasked(0.0));
    EXPECT_FALSE(result->hasForm(ImageForm::Gl));
  });
}

TEST(LogCompressionTest, AFanOfAScanConvertedImageStaysAFan) {
  const auto fan = Tests::sectorCase(45, 20, 100, 0.3).geometry;
  ImageDescriptor descriptor(PixelFloat, 320, 220);
  descriptor.setSpacing({0.5, 0.5, 1.0});
  fan->setImgDesc(descriptor);
  fan->setOffset({0.0, -50.0, 0.0});
  auto pixels = std::make_shared<TypedImage<float>>(fan->imgDesc());
  std::fill_n(pixels->pointer(), pixels->size(), 0.1f);
  SharedImage image(pixels);
  const auto mask = std::make_shared<FanMask>(*fan);
  image.setMask(mask);
  std::vector<double> expected;
  std::vector<unsigned char> valid(static_cast<std::size_t>(pixels->width()));
  for (int y = 0; y < pixels->height(); ++y) {
    mask->evaluate(*pixels, 0, y, 0, pixels->width(), valid.data());
    for (const unsigned char isValid : valid)
      expected.push_back(isValid ? 153.0 : 0.0); // 1 + 254 * 30 / 50
  }
  for (const double value : {0.0, 153.0})
    ASSERT_GT(std::count(expected.begin(), expected.end(), value), 10000);
  onBothEvaluators([&](bool isShaded) {
    const auto result = LogCompressionAlgorithm::logCompression(image, Parameters());
    EXPECT_EQ(result->hasForm(ImageForm::Gl), isShaded);
    const std::vector<double> values = valuesOf(*result);
    std::size_t different = 0;
    for (std::size_t i = 0; i < values.size(); ++i)
      different += values[i] != expected[i];
    EXPECT_LE(different, isShaded ? 20u : 0u) << "a shader may decide otherwise on the very edge";
  });
}

TEST(LogCompressionTest, KeepsWhatTheImageIsBesideItsSamples) {
  ImageDescriptor descriptor(PixelInt16, 5, 4, 3);
  descriptor.setSpacing({0.1, 0.2, 0.3});
  descriptor.setScale(100.0);
  descriptor.setShift(2.0);
  SharedImage image(Kelvaris::Tests::imageOf(descriptor, [](int, int, int, int) { return 300; })); // 300 / 100 - 2 = 1
  image.setModality(Data::Ultrasound);
  image.setMatrix(Eigen::Matrix4d::Identity() * 2.0);
  const auto result = LogCompressionAlgorithm::logCompression(image, {50.0, 10.0, false});
  descriptor.setPixelType(PixelFloat);
  EXPECT_TRUE(result->descriptor().isApprox(descriptor));
  EXPECT_EQ(valuesOf(*result), std::vector<double>(60, (-20.0 + 2.0) * 100.0));
  EXPECT_EQ(result->modality(), Data::Ultrasound);
  EXPECT_EQ(result->matrix(), image.matrix());
}

TEST(LogCompressionTest, RefusesOtherChannelCountsOnceAndNoInput) {
  const auto image = makeImage<float>({1.0, 2.0, 3.0}, 3);
  DataComponentList components;
  components.add<FrameGeometryMetadata>();
  const Kelvaris::Tests::ExpectedLog log;
  EXPECT_EQ(LogCompressionAlgorithm::logCompression(*image, Parameters()), nullptr);
  LogCompressionAlgorithm algorithm(nullptr);
  const auto [result, resultComponents] = algorithm.processImage(*image, components);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(resultComponents.empty());
  EXPECT_EQ(log.messages(), std::vector<std::string>(2, "4 LogCompressionAlgorithm: Expected 1 or 2 channels, got 3"));
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_EQ(log.messages().back(), "4 LogCompressionAlgorithm: No input image given");
}

TEST(LogCompressionTest, TheFrameGeometryFollowsThePixelType) {
  LogCompressionAlgorithm algorithm(nullptr);
  FrameGeometryLinear geometry;
  geometry.setImgDescPrescan(ImageDescriptor(PixelInt16, 7, 9, 1, 2)); // the Cartesian one stays invalid
  DataComponentList components;
  components.add<FrameGeometryMetadata>(geometry);
  const auto image = makeImage<short>({3.0, 4.0}, 2);
  for (const bool levels : {true, false}) {
    Properties settings;
    settings.setParam("normalizeEnvelope", levels);
    algorithm.configure(&settings);
    const auto updated = algorithm.processImage(*image, components).second;
    const FrameGeometry& after = *updated.get<FrameGeometryMetadata>()->frameGeometry();
    EXPECT_TRUE(after.imgDescPrescan().isApprox(ImageDescriptor(levels ? PixelUInt8 : PixelFloat, 7, 9, 1, 1)));
    EXPECT_FALSE(after.imgDesc().isValid());
  }
  EXPECT_TRUE(components.get<FrameGeometryMetadata>()->frameGeometry()->isApprox(geometry, 0.0, true))
      << "the input's components never change";
  components.get<FrameGeometryMetadata>()->setFrameGeometry(nullptr);
  EXPECT_EQ(algorithm.processImage(*image, components).second.size(), 1u);
}

TEST(LogCompressionTest, AcceptsAmplitudeAndIqImages) {
  SharedImageSet none;
  none.setModality(Data::Ultrasound);
  EXPECT_FALSE(LogCompressionAlgorithm::createCompatible({&none}, nullptr));
  for (const int channels : {1, 2, 3}) {
    SharedImageSet set;
    set.setModality(Data::Ultrasound);
    set.add(makeImage<float>({1.0, 2.0, 3.0, 4.0, 5.0, 6.0}, channels));
    EXPECT_EQ(LogCompressionAlgorithm::createCompatible({&set}, nullptr), channels < 3);
  }
}

TEST(LogCompressionTest, ParametersMayChangeWhileImagesAreProcessed) {
  LogCompressionAlgorithm algorithm(nullptr);
  const auto image = makeImage<float>(std::vector<double>(4096, 0.1));
  std::atomic<bool> done = false;
  std::thread form([&] {
    Properties settings;
    for (int i = 0; !done; ++i) {
      settings.setParam("dynamicRange", i % 2 == 0 ? 20.0 : 80.0);
      settings.setParam("normalizeEnvelope", true);
      algorithm.configure(&settings);
    }
  });
  for (int i = 0; i < 200; ++i) {
    const auto values = valuesOf(*algorithm.processImage(*image, {}).first);
    EXPECT_EQ(std::count(values.begin(), values.end(), values[0]), 4096) << "one set of values for a whole image";
  }
  done = true;
  form.join();
}

} // namespace
} // namespace Kelvaris::US
