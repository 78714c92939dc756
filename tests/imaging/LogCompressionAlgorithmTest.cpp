#include "imaging/LogCompressionAlgorithm.h"

#include "Core/Progress.h"
#include "GL/ContextManager.h"
#include "Lib/IntensityMask.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "US/FanMask.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/GeometryCases.h"
#include "support/ExpectedLog.h"
#include "support/IntensityMaskOf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace Kelvaris::US {
namespace {

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
  for (int z = 0; z < mem->slices(); ++z)
    for (int y = 0; y < mem->height(); ++y)
      for (int x = 0; x < mem->width(); ++x)
        values.push_back(mem->valueAsDouble(x, y, z, 0));
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

/// The mapping on its own, with wider arithmetic and another logarithm.
long double expectedDecibels(const std::vector<double>& pixel, const Parameters& p) {
  long double power = 0.0L;
  for (const double x : pixel)
    power += static_cast<long double>(x) * x;
  const long double ratio =
      std::max(std::sqrt(power), 1.1754944e-37L) / static_cast<long double>(static_cast<float>(p.referenceAmplitude));
  return std::clamp(20.0L * std::log10(ratio), -static_cast<long double>(p.dynamicRange), 0.0L);
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
  for (const int channels : {1, 2}) {
    std::vector<double> samples;
    for (int i = 0; i < pixels * channels; ++i) {
      const double size = std::pow(10.0, exponent(random));
      const double sample = std::is_signed_v<TypeParam> && random() % 2 == 0 ? -size : size;
      samples.push_back(static_cast<double>(static_cast<TypeParam>(random() % 17 == 0 ? invalid : sample)));
    }
    const auto checkAll = [&](bool masked, const Parameters& p, bool isShaded) {
      const auto image = makeImage<TypeParam>(samples, channels, masked ? std::optional(invalid) : std::nullopt);
      const auto result = LogCompressionAlgorithm::logCompression(*image, p);
      const bool fitsTexture = sizeof(TypeParam) <= 2 || std::is_same_v<TypeParam, float>;
      ASSERT_EQ(result->hasForm(ImageForm::Gl), isShaded && fitsTexture);
      const int levels = result->hasForm(ImageForm::Gl) ? 1 : 0;
      const double tolerance = result->hasForm(ImageForm::Gl) ? 1e-5 * p.dynamicRange : 4e-6 / 50;
      ASSERT_EQ(result->descriptor().pixelType(), p.normalizeEnvelope ? PixelUInt8 : PixelFloat);
      ASSERT_EQ(result->descriptor().channels(), 1);
      ASSERT_EQ(result->descriptor().dimensions(), image->descriptor().dimensions());
      const std::vector<double> values = valuesOf(*result);
      int wrong = 0;
      for (std::size_t i = 0; i < values.size(); ++i) {
        std::vector<double> pixel(samples.begin() + static_cast<int>(i) * channels,
                                  samples.begin() + (static_cast<int>(i) + 1) * channels);
        const bool isInvalid = masked && std::count(pixel.begin(), pixel.end(), invalid) > 0;
        const long double dB = expectedDecibels(pixel, p);
        if (p.normalizeEnvelope) {
          const long double level = isInvalid ? 0.0L
                                    : masked  ? (dB + p.dynamicRange) * (254.0L / p.dynamicRange) + 1.0L
                                              : (dB + p.dynamicRange) * (255.0L / p.dynamicRange);
          const bool undecided = std::abs(level - std::floor(level) - 0.5L) < 1e-12L;
          wrong += !undecided && std::abs(values[i] - static_cast<double>(std::round(level))) > levels;
          wrong += isInvalid != (masked && values[i] == 0.0);
        } else if (isInvalid) {
          wrong += !std::isnan(values[i]);
        } else {
          wrong += !(std::abs(values[i] - static_cast<double>(dB)) <= tolerance * std::max(1.0, std::abs(values[i])));
        }
      }
      EXPECT_EQ(wrong, 0) << channels << " channels, masked " << masked << ", range " << p.dynamicRange << ", shaded "
                          << isShaded;
      ASSERT_EQ(result->mask() != nullptr, masked);
      if (masked) {
        EXPECT_EQ(intensityMask(*result).pixelType(), result->descriptor().pixelType());
        EXPECT_TRUE(intensityMask(*result).isMasked(p.normalizeEnvelope ? 0.0 : kNaN));
      }
    };
    for (const bool masked : {false, true})
      for (const Parameters& p : {Parameters{50.0, 1000.0, true}, Parameters{50.0, 1000.0, false},
                                  Parameters{33.3, 120.7, true}, Parameters{91.0, 2.5, false}})
        onBothEvaluators([&](bool isShaded) { checkAll(masked, p, isShaded); });
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
      {"at the reference, with a mask", {2.5}, -1.0, {50.0, 2.5, true}, 255.0},
      {"above the reference", {1e30}, {}, {50.0, 1.0, true}, 255.0},
      {"IQ 3, 4 at reference 5", {3.0, 4.0}, {}, {50.0, 5.0, false}, 0.0},
      {"one component masked", {3.0, -1.0}, -1.0, {50.0, 5.0, true}, 0.0},
      {"one component masked, decibels", {3.0, -1.0}, -1.0, {50.0, 5.0, false}, kNaN},
      {"a decade below, on the border of two levels", {100.0}, {}, {40.0, 1000.0, true}, 128.0},
      {"two decades below, on the border", {10.0}, {}, {80.0, 1000.0, true}, 128.0},
      {"NaN, levels", {kNaN}, {}, {50.0, 1.0, true}, 0.0},
      {"NaN, decibels", {kNaN}, {}, {50.0, 1.0, false}, kNaN},
      {"infinity", {-kInfinity}, {}, {50.0, 1.0, true}, 255.0},
      {"a range beyond the form's limits", {1e-6}, {}, {200.0, 1.0, false}, -120.0},
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
      EXPECT_TRUE(std::abs(value - expected) <= tolerance || (std::isnan(value) && std::isnan(expected)))
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
  ASSERT_GT(std::count(expected.begin(), expected.end(), 153.0), 10000);
  ASSERT_GT(std::count(expected.begin(), expected.end(), 0.0), 10000);
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

TEST(LogCompressionTest, ReadsAndStoresThroughShiftAndScale) {
  ImageDescriptor descriptor(PixelInt16, 1, 1);
  descriptor.setScale(100.0);
  descriptor.setShift(2.0);
  auto pixels = std::make_shared<TypedImage<short>>(descriptor);
  (*pixels)[0] = 300; // 300 / 100 - 2 = 1
  const auto result = LogCompressionAlgorithm::logCompression(SharedImage(pixels), {50.0, 10.0, false});
  EXPECT_EQ(valuesOf(*result).at(0), static_cast<float>((-20.0 + 2.0) * 100.0));
  EXPECT_EQ(result->descriptor().scale(), 100.0);
  EXPECT_EQ(result->descriptor().shift(), 2.0);
}

TEST(LogCompressionTest, KeepsExtentSpacingModalityAndMatrix) {
  ImageDescriptor descriptor(PixelHalf, 5, 4, 3, 2);
  descriptor.setSpacing({0.1, 0.2, 0.3});
  SharedImage image(MemImage::create(descriptor));
  std::fill_n(static_cast<float*>(image.mem()->data()), descriptor.elementCount(), 1.0f);
  image.setModality(Data::Ultrasound);
  image.setMatrix(Eigen::Matrix4d::Identity() * 2.0);
  const auto result = LogCompressionAlgorithm::logCompression(image, Parameters());
  EXPECT_EQ(result->descriptor().dimensions(), Eigen::Vector3i(5, 4, 3));
  EXPECT_EQ(result->descriptor().spacing(), Eigen::Vector3d(0.1, 0.2, 0.3));
  EXPECT_EQ(result->modality(), Data::Ultrasound);
  EXPECT_EQ(result->matrix(), image.matrix());
}

TEST(LogCompressionTest, RefusesOtherChannelCountsOnce) {
  const auto image = makeImage<float>({1.0, 2.0, 3.0}, 3);
  const LogCompressionAlgorithm algorithm(nullptr);
  const std::vector<std::string> message = {"4 LogCompressionAlgorithm: Expected 1 or 2 channels, got 3"};
  {
    Kelvaris::Tests::ExpectedLog log;
    EXPECT_EQ(LogCompressionAlgorithm::logCompression(*image, Parameters()), nullptr);
    EXPECT_EQ(log.messages(), message);
  }
  Kelvaris::Tests::ExpectedLog log;
  DataComponentList components;
  components.add<FrameGeometryMetadata>();
  const auto [result, resultComponents] = algorithm.processImage(*image, components);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(resultComponents.empty());
  EXPECT_EQ(log.messages(), message);
}

TEST(LogCompressionTest, TheFrameGeometryFollowsThePixelType) {
  LogCompressionAlgorithm algorithm(nullptr);
  for (const bool levels : {true, false}) {
    Properties settings;
    settings.setParam("normalizeEnvelope", levels);
    algorithm.configure(&settings);

    FrameGeometryLinear geometry;
    geometry.setImgDescPrescan(ImageDescriptor(PixelInt16, 7, 9, 1, 2)); // the Cartesian one stays invalid
    DataComponentList components;
    components.add<FrameGeometryMetadata>(geometry);
    const auto [image, updated] = algorithm.processImage(*makeImage<short>({3.0, 4.0}, 2), components);

    const FrameGeometry& after = *updated.get<FrameGeometryMetadata>()->frameGeometry();
    EXPECT_EQ(after.imgDescPrescan().pixelType(), levels ? PixelUInt8 : PixelFloat);
    EXPECT_EQ(after.imgDescPrescan().channels(), 1);
    EXPECT_EQ(after.imgDescPrescan().width(), 7);
    EXPECT_FALSE(after.imgDesc().isValid());
    EXPECT_TRUE(after.imgDesc().isApprox(geometry.imgDesc()));
    const FrameGeometry& before = *components.get<FrameGeometryMetadata>()->frameGeometry();
    EXPECT_EQ(before.imgDescPrescan().pixelType(), PixelInt16) << "the input's components never change";
  }
  DataComponentList noGeometry;
  noGeometry.add<FrameGeometryMetadata>();
  const auto [image, components] = algorithm.processImage(*makeImage<float>({1.0}), noGeometry);
  ASSERT_EQ(components.size(), 1u);
  EXPECT_EQ(components.get<FrameGeometryMetadata>()->frameGeometry(), nullptr);
}

TEST(LogCompressionTest, HasItsParametersInOrder) {
  const LogCompressionAlgorithm algorithm(nullptr);
  Properties properties;
  algorithm.configuration(&properties);
  const std::vector<Properties::Param> expected = {
      {"dynamicRange", "50"}, {"referenceAmplitude", "1"}, {"normalizeEnvelope", "true"}};
  EXPECT_EQ(properties.params(), expected);
  const std::map<std::string, std::string> attributes = {
      {"suffix", "dB"}, {"decimals", "1"}, {"min", "5"}, {"max", "100"}};
  EXPECT_EQ(algorithm.parameter("dynamicRange")->attributes(), attributes);
}

TEST(LogCompressionTest, AcceptsAmplitudeAndIqImagesAndStreamsOfThem) {
  ImageStream images("images"), volumes("volumes"), other("other");
  volumes.setKind(Data::VolumeStreamKind);
  other.setKind(Data::OtherStreamKind);
  SharedImageSet one, two, three, none;
  for (SharedImageSet* set : {&one, &two, &three, &none})
    set->setModality(Data::Ultrasound);
  one.add(makeImage<float>({1.0}));
  two.add(makeImage<short>({3.0, 4.0}, 2));
  three.add(makeImage<short>({3.0, 4.0, 5.0}, 3));
  const struct {
    const char* what;
    DataList data;
    bool compatible;
  } cases[] = {{"one channel", {&one}, true}, {"two channels", {&two}, true},     {"three channels", {&three}, false},
               {"no images", {&none}, false}, {"two sets", {&one, &two}, false},  {"images", {&images}, true},
               {"volumes", {&volumes}, true}, {"another stream", {&other}, false}};
  for (const auto& c : cases)
    EXPECT_EQ(LogCompressionAlgorithm::createCompatible(c.data, nullptr), c.compatible) << c.what;

  Algorithm* created = nullptr;
  ASSERT_TRUE(LogCompressionAlgorithm::createCompatible({&images}, &created));
  const std::unique_ptr<Algorithm> owned(created);
  const auto& executor = dynamic_cast<const StreamAlgorithmExecutor&>(*created);
  EXPECT_NE(dynamic_cast<LogCompressionAlgorithm*>(executor.streamAlgorithm()), nullptr);
  EXPECT_EQ(executor.streamAlgorithmName(), "Log Compression");
}

TEST(LogCompressionTest, AFailedImageEndsTheRun) {
  SharedImageSet images;
  images.add(makeImage<float>({1.0}));
  images.add(makeImage<float>({1.0, 2.0, 3.0}, 3));
  LogCompressionAlgorithm algorithm(&images);
  Kelvaris::Tests::ExpectedLog log;
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_TRUE(algorithm.takeOutput().empty());
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"4 LogCompressionAlgorithm: Expected 1 or 2 channels, got 3",
                                                      "4 LogCompressionAlgorithm: Error while filtering image 1of2"}));
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
