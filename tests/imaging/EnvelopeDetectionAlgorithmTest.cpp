#include "imaging/EnvelopeDetectionAlgorithm.h"

#include "GL/GlImage.h"
#include "GL/RequireGL.h"
#include "Lib/IntensityMask.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "imaging/LogCompressionAlgorithm.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <map>
#include <memory>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::US {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
const std::string kName = "4 EnvelopeDetectionAlgorithm: ";

// A tissue of 1.54 mm/us, rows 0.025 mm apart, echoes of 5 MHz.
constexpr double kSpeedOfSound = 1.54, kRowSpacing = 0.025, kFrequency = 5.0;
constexpr double kSamplingFrequency = kSpeedOfSound / (2.0 * kRowSpacing);

/// Column x holds the echo of a target at the centre of row `row`: amplitude times a Gaussian of width sigma, in rows.
template <typename T>
std::shared_ptr<SharedImage> burst(double amplitude, int row, double sigma, int width = 3, int height = 400) {
  ImageDescriptor descriptor(pixelTypeOf<T>(), width, height);
  descriptor.setSpacing({0.3, kRowSpacing, 1.0});
  auto image = std::make_shared<TypedImage<T>>(descriptor);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const double t = y - row, phase = 2.0 * std::numbers::pi * kFrequency * t / kSamplingFrequency + 0.9 * x;
      const double value = amplitude * std::exp(-0.5 * t * t / (sigma * sigma)) * std::cos(phase);
      image->setValue(static_cast<T>(std::is_integral_v<T> ? std::round(value) : value), x, y);
    }
  auto shared = std::make_shared<SharedImage>(image);
  shared->setModality(Data::Ultrasound);
  return shared;
}

Properties settings(std::map<std::string, std::string> values) {
  values.emplace("samplingFrequency", std::to_string(kSamplingFrequency));
  values.emplace("demodulationFrequency", std::to_string(kFrequency));
  Properties properties;
  for (const auto& [key, value] : values)
    properties.setParam(key, value);
  return properties;
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList>
process(const SharedImage& image, const Properties& properties, const DataComponentList& components = {}) {
  EnvelopeDetectionAlgorithm algorithm(nullptr);
  algorithm.configure(&properties);
  return algorithm.processImage(image, components);
}

TEST(EnvelopeDetection, TheEnvelopeOfAToneBurstHasItsAmplitudeAtItsPlace) {
  KELVARIS_REQUIRE_GL();
  const struct {
    const char* what;
    std::shared_ptr<SharedImage> image;
    int factor;
    double amplitude;
  } cases[] = {
      {"float", burst<float>(7.0, 180, 20.0), 1, 7.0},
      {"16 bits", burst<short>(3000.0, 180, 20.0), 1, 3000.0},
      {"half the rows", burst<float>(7.0, 180, 20.0), 2, 7.0},
      {"a third of the rows", burst<float>(7.0, 180, 20.0), 3, 7.0},
      {"one column", burst<float>(7.0, 180, 20.0, 1), 1, 7.0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const double reference = 10.0 * c.amplitude; // 20 dB above the burst
    const auto [result, components] = process(*c.image, settings({{"normalizeEnvelope", "false"},
                                                                  {"dynamicRange", "70"},
                                                                  {"referenceAmplitude", std::to_string(reference)},
                                                                  {"decimationFactor", std::to_string(c.factor)}}));
    ASSERT_NE(result, nullptr);
    const ImageDescriptor& d = result->descriptor();
    EXPECT_EQ(d.pixelType(), PixelFloat);
    EXPECT_EQ(d.channels(), 1);
    EXPECT_EQ(d.height(), (400 + c.factor / 2) / c.factor);
    EXPECT_EQ(d.width(), c.image->descriptor().width());
    EXPECT_NEAR(d.spacing().y() * d.height(), 400 * kRowSpacing, 1e-12);
    EXPECT_EQ(result->modality(), Data::Ultrasound);
    const auto decibels = result->mem();
    for (int x = 0; x < d.width(); ++x) {
      int peak = 0;
      for (int y = 0; y < d.height(); ++y) {
        if (decibels->valueAsDouble(x, y, 0, 0) > decibels->valueAsDouble(x, peak, 0, 0)) peak = y;
        // Down to 12 dB below the peak, where the filter's leakage is small, the envelope is the Gaussian.
        const double t = ((y + 0.5) * d.spacing().y() / kRowSpacing - 0.5 - 180) / 20.0;
        if (std::abs(t) < 1.65) {
          const double expected = -20.0 + 20.0 * std::log10(std::exp(-0.5 * t * t));
          EXPECT_NEAR(decibels->valueAsDouble(x, y, 0, 0), expected, 0.25) << "row " << y;
        }
      }
      EXPECT_NEAR((peak + 0.5) * d.spacing().y(), 180.5 * kRowSpacing, 1.0001 * d.spacing().y());
      EXPECT_EQ(decibels->valueAsDouble(x, d.height() - 1, 0, 0), -70.0) << "nothing far from the burst";
    }
  }
}

TEST(EnvelopeDetection, InvalidPixelsCountAsZero) {
  KELVARIS_REQUIRE_GL();
  const auto level = settings({{"referenceAmplitude", "3000"}, {"dynamicRange", "60"}});
  for (const bool isFloat : {true, false}) {
    const double invalid = isFloat ? kNan : -32768.0;
    std::vector<std::shared_ptr<SharedImage>> images;
    for (const double below : {invalid, 0.0}) {
      images.push_back(isFloat ? burst<float>(3000.0, 180, 20.0) : burst<short>(3000.0, 180, 20.0));
      const auto mem = images.back()->mem();
      for (int y = 240; y < 400; ++y)
        for (int x = 0; x < 3; ++x)
          if (isFloat)
            static_cast<TypedImage<float>&>(*mem).setValue(static_cast<float>(below), x, y);
          else
            static_cast<TypedImage<short>&>(*mem).setValue(static_cast<short>(below), x, y);
    }
    images[0]->setMask(std::make_shared<IntensityMask>(images[0]->descriptor().pixelType(), invalid));
    const auto masked = process(*images[0], level).first, plain = process(*images[1], level).first;
    EXPECT_EQ(masked->mask(), nullptr);
    for (int y = 0; y < 400; ++y)
      ASSERT_EQ(masked->mem()->valueAsDouble(1, y, 0, 0), plain->mem()->valueAsDouble(1, y, 0, 0)) << "row " << y;
    EXPECT_EQ(images[0]->mem()->valueAsDouble(1, 300, 0, 0) == 0.0, false) << "the input stays as it is";
  }
}

TEST(EnvelopeDetection, CompressesIqAsItIsWhateverTheSwitchSays) {
  auto iq = std::make_shared<TypedImage<float>>(2, 3, 1, 2);
  for (std::size_t i = 0; i < iq->size(); ++i)
    (*iq)[i] = static_cast<float>(i);
  SharedImage image(iq);
  image.setModality(Data::Ultrasound);
  const auto expected = LogCompressionAlgorithm::logCompression(image, {40.0, 5.0, true})->mem();
  for (const char* compress : {"true", "false"}) {
    const auto [result, components] =
        process(image, settings({{"logCompression", compress}, {"dynamicRange", "40"}, {"referenceAmplitude", "5"}}));
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->modality(), Data::Ultrasound);
    EXPECT_EQ(result->descriptor().pixelType(), PixelUInt8);
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 2; ++x)
        EXPECT_EQ(result->mem()->valueAsDouble(x, y, 0, 0), expected->valueAsDouble(x, y, 0, 0));
  }
}

TEST(EnvelopeDetection, WithoutLogCompressionGivesTheIqImage) {
  KELVARIS_REQUIRE_GL();
  DataComponentList components;
  FrameGeometryLinear geometry;
  geometry.setImgDescPrescan(ImageDescriptor(PixelFloat, 3, 400));
  components.add<FrameGeometryMetadata>(geometry);
  const auto [result, after] = process(*burst<float>(7.0, 180, 20.0),
                                       settings({{"logCompression", "false"}, {"decimationFactor", "4"}}), components);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->descriptor().channels(), 2);
  EXPECT_EQ(result->descriptor().pixelType(), PixelFloat);
  EXPECT_EQ(result->descriptor().height(), 100);
  EXPECT_EQ(result->modality(), Data::Ultrasound);
  const auto iq = result->mem();
  EXPECT_NEAR(std::abs(std::complex(iq->valueAsDouble(1, 45, 0, 0), iq->valueAsDouble(1, 45, 0, 1))), 7.0, 0.2);
  EXPECT_EQ(after.get<FrameGeometryMetadata>()->frameGeometry()->imgDescPrescan().channels(), 1);
  EXPECT_EQ(after.get<FrameGeometryMetadata>()->frameGeometry()->imgDescPrescan().pixelType(), PixelFloat);
}

TEST(EnvelopeDetection, TheFrameGeometryGetsPixelTypeAndChannelsButKeepsItsSize) {
  KELVARIS_REQUIRE_GL();
  for (const bool levels : {true, false}) {
    FrameGeometryLinear geometry;
    geometry.setImgDescPrescan(ImageDescriptor(PixelInt16, 3, 400, 1, 2));
    DataComponentList components;
    components.add<FrameGeometryMetadata>(geometry);
    const auto [result, after] =
        process(*burst<float>(7.0, 180, 20.0),
                settings({{"normalizeEnvelope", levels ? "true" : "false"}, {"decimationFactor", "2"}}), components);
    ASSERT_NE(result, nullptr);
    const ImageDescriptor prescan = after.get<FrameGeometryMetadata>()->frameGeometry()->imgDescPrescan();
    EXPECT_EQ(prescan.pixelType(), levels ? PixelUInt8 : PixelFloat);
    EXPECT_EQ(prescan.channels(), 1);
    EXPECT_EQ(prescan.height(), 400);
    EXPECT_FALSE(after.get<FrameGeometryMetadata>()->frameGeometry()->imgDesc().isValid());
    EXPECT_EQ(components.get<FrameGeometryMetadata>()->frameGeometry()->imgDescPrescan().channels(), 2);
  }
}

TEST(EnvelopeDetection, ReportsBadInputByANullImage) {
  KELVARIS_REQUIRE_GL();
  const auto image = burst<float>(7.0, 180, 20.0);
  auto flat = std::make_shared<TypedImage<float>>(2, 3);
  flat->setSpacing({1.0, 0.0, 1.0});
  const std::string frequencies =
      kName + "Expected a positive sampling frequency and a finite demodulation frequency, ";
  const struct {
    std::shared_ptr<SharedImage> image;
    std::map<std::string, std::string> values;
    std::string reason;
  } cases[] = {
      {image, {{"samplingFrequency", "0"}}, frequencies + "got 0 and 5"},
      {image, {{"samplingFrequency", "nan"}}, frequencies + "got nan and 5"},
      {image, {{"samplingFrequency", "30"}, {"demodulationFrequency", "inf"}}, frequencies + "got 30 and inf"},
      {image, {{"decimationFactor", "0"}}, kName + "Expected a decimation factor of at least 1, got 0"},
      {std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(2, 3, 1, 3)),
       {},
       kName + "IQ demodulation takes images of 1 channel, not of 3"},
      {std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(2, 3, 1, 7)),
       {},
       kName + "IQ demodulation takes images of 1 channel, not of 7"},
      {std::make_shared<SharedImage>(ImageDescriptor(PixelFloat, 2, 3)),
       {},
       kName + "The image (float, 2 x 3 x 1, 1 channel) has no pixels"},
      {std::make_shared<SharedImage>(flat),
       {},
       "4 ImageResamplingAlgorithm: The target spacing (1, 0, 1) must be positive and finite"},
  };
  for (const auto& c : cases) {
    DataComponentList components;
    components.add<FrameGeometryMetadata>();
    const Tests::ExpectedLog log;
    const auto [result, after] = process(*c.image, settings(c.values), components);
    EXPECT_EQ(result, nullptr);
    EXPECT_TRUE(after.empty());
    EXPECT_EQ(log.messages(), (std::vector<std::string>{c.reason, kName + "Filter did not produce an output"}));
  }
}

TEST(EnvelopeDetection, HasItsParametersInOrder) {
  const EnvelopeDetectionAlgorithm algorithm(nullptr);
  Properties properties;
  algorithm.configuration(&properties);
  const std::vector<Properties::Param> expected = {{"samplingFrequency", "100"}, {"demodulationFrequency", "3.5"},
                                                   {"decimationFactor", "1"},    {"logCompression", "true"},
                                                   {"dynamicRange", "50"},       {"referenceAmplitude", "1"},
                                                   {"normalizeEnvelope", "true"}};
  EXPECT_EQ(properties.params(), expected);
  const auto megahertz = [](const char* max) {
    return std::map<std::string, std::string>{{"suffix", "MHz"}, {"decimals", "3"}, {"min", "0.01"}, {"max", max}};
  };
  const std::map<std::string, std::map<std::string, std::string>> attributes = {
      {"samplingFrequency", megahertz("200")},
      {"demodulationFrequency", megahertz("50")},
      {"decimationFactor", {{"min", "1"}, {"max", "20"}}},
      {"logCompression", {}},
      {"dynamicRange", {{"suffix", "dB"}, {"decimals", "1"}, {"min", "5"}, {"max", "100"}}},
      {"referenceAmplitude", {}},
      {"normalizeEnvelope", {}}};
  for (const auto& [key, values] : attributes)
    EXPECT_EQ(algorithm.parameter(key.c_str())->attributes(), values) << key;
}

TEST(EnvelopeDetection, TakesSetsOfAnyChannelsAndStreamsOfImages) {
  ImageStream images("images"), volumes("volumes"), other("other");
  volumes.setKind(Data::VolumeStreamKind);
  other.setKind(Data::OtherStreamKind);
  SharedImageSet real, three, none, unknown;
  for (SharedImageSet* set : {&real, &three, &none})
    set->setModality(Data::Ultrasound);
  real.add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(2, 3)));
  three.add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(2, 3, 2, 3)));
  unknown.add(real.shared(0));
  const struct {
    const char* what;
    DataList data;
    bool compatible;
  } cases[] = {{"images", {&real}, true},
               {"volumes of three channels", {&three}, true},
               {"no images", {&none}, false},
               {"another modality", {&unknown}, false},
               {"two sets", {&real, &three}, false},
               {"a stream", {&images}, true},
               {"volumes", {&volumes}, true},
               {"another stream", {&other}, false},
               {"nothing", {}, false}};
  for (const auto& c : cases)
    EXPECT_EQ(EnvelopeDetectionAlgorithm::createCompatible(c.data, nullptr), c.compatible) << c.what;
}

TEST(EnvelopeDetection, AStreamTakesUpNewParametersAndLivesThroughFailures) {
  KELVARIS_REQUIRE_GL();
  ImageStream stream("probe");
  auto algorithm = std::make_unique<EnvelopeDetectionAlgorithm>(nullptr);
  Algorithm& running = *algorithm;
  StreamAlgorithmExecutor executor(stream, std::move(algorithm));
  std::vector<double> peaks;
  const auto connection = executor.stream()->dataSignal.connect([&](const std::shared_ptr<const StreamData>& data) {
    peaks.push_back(dynamic_cast<const ImageStreamData&>(*data).images()->get(0).mem()->valueAsDouble(1, 180, 0, 0));
  });
  const auto emit = [&](std::map<std::string, std::string> values) {
    values.insert({{"normalizeEnvelope", "false"}, {"referenceAmplitude", "70"}});
    const Properties properties = settings(std::move(values));
    running.configure(&properties);
    auto images = std::make_shared<SharedImageSet>();
    images->add(burst<float>(7.0, 180, 20.0));
    stream.dataSignal.emitSignal(std::make_shared<ImageStreamData>(images));
  };
  emit({});
  {
    const Tests::ExpectedLog log;
    emit({{"samplingFrequency", "-1"}});
    EXPECT_EQ(log.messages().size(), 2u);
  }
  emit({{"samplingFrequency", "400"}}); // as if the rows lay closer: the filter cuts the echoes off
  emit({});
  ASSERT_EQ(peaks.size(), 3u);
  EXPECT_NEAR(peaks[0], -20.0, 0.1);
  EXPECT_LT(peaks[1], -30.0);
  EXPECT_EQ(peaks[2], peaks[0]);
}

} // namespace
} // namespace Kelvaris::US
