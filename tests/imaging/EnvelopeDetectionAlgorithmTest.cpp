#include "imaging/EnvelopeDetectionAlgorithm.h"

#include "GL/RequireGL.h"
#include "Lib/IntensityMask.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "imaging/LogCompressionAlgorithm.h"
#include "processing/IqDemodulation.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"
#include "support/Samples.h"

namespace Kelvaris::US {
namespace {

using EnvelopeDetection = Tests::ContextTest;
using Values = std::map<std::string, std::string>;

constexpr double kSamplingFrequency = 30.8, kFrequency = 5.0;

std::shared_ptr<SharedImage> echoes(int pixelType, int width = 3) {
  ImageDescriptor descriptor(pixelType, width, 400);
  descriptor.setSpacing({0.3, 0.025, 1.0});
  auto image = std::make_shared<SharedImage>(Tests::noiseImage(descriptor));
  image->setModality(Data::Ultrasound);
  return image;
}

/// With what is told, and the frequencies above where nothing else is.
std::pair<std::shared_ptr<SharedImage>, DataComponentList> process(const SharedImage& image, const Values& values,
                                                                   const DataComponentList& components = {}) {
  Properties properties;
  properties.setParam("samplingFrequency", kSamplingFrequency);
  properties.setParam("demodulationFrequency", kFrequency);
  for (const auto& [key, value] : values)
    properties.setParam(key, value);
  EnvelopeDetectionAlgorithm algorithm(nullptr);
  algorithm.configure(&properties);
  return algorithm.processImage(image, components);
}

TEST_F(EnvelopeDetection, IsDemodulationAndThenCompression) {
  const struct {
    const char* what;
    int pixelType, width, factor;
    bool isCompressed, hasLevels;
  } cases[] = {{"decibels", PixelFloat, 3, 1, true, false},
               {"levels of 16 bits, half the rows", PixelInt16, 3, 2, true, true},
               {"one column, a third of the rows", PixelFloat, 1, 3, true, false},
               {"IQ of 16 bits", PixelInt16, 3, 4, false, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    FrameGeometryLinear geometry;
    geometry.setImgDescPrescan(ImageDescriptor(c.pixelType, c.width, 400, 1, 2)); // the Cartesian one stays invalid
    DataComponentList components;
    components.add<FrameGeometryMetadata>(geometry);
    const auto image = echoes(c.pixelType, c.width);
    const auto [result, after] = process(*image,
                                         {{"normalizeEnvelope", c.hasLevels ? "true" : "false"},
                                          {"dynamicRange", "70"},
                                          {"referenceAmplitude", "90"},
                                          {"decimationFactor", std::to_string(c.factor)},
                                          {"logCompression", c.isCompressed ? "true" : "false"}},
                                         components);
    auto expected = IqDemodulation().demodulate(*image, kSamplingFrequency, kFrequency, c.factor, 1.0, 101);
    if (c.isCompressed) expected = LogCompressionAlgorithm::logCompression(*expected, {70.0, 90.0, c.hasLevels});
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(result->descriptor().isApprox(expected->descriptor())) << result->descriptor().toString();
    EXPECT_TRUE(Tests::sameBytes(*result->mem(), *expected->mem()));
    EXPECT_EQ(result->modality(), Data::Ultrasound);
    const FrameGeometry& frame = *after.get<FrameGeometryMetadata>()->frameGeometry();
    EXPECT_EQ(frame.imgDescPrescan().pixelType(), result->descriptor().pixelType());
    EXPECT_EQ(frame.imgDescPrescan().height(), 400) << "the geometry keeps its size";
  }
}

TEST_F(EnvelopeDetection, CompressesIqAsItIsWhateverTheSwitchSays) {
  const SharedImage iq(Tests::noiseImage(ImageDescriptor(PixelFloat, 5, 4, 1, 2)));
  const auto expected = LogCompressionAlgorithm::logCompression(iq, {50.0, 90.0, true})->mem();
  for (const char* compress : {"true", "false"}) {
    const auto result = process(iq, {{"logCompression", compress}, {"referenceAmplitude", "90"}}).first;
    EXPECT_TRUE(Tests::sameBytes(*result->mem(), *expected));
  }
}

TEST_F(EnvelopeDetection, InvalidPixelsCountAsZero) {
  for (const auto& [pixelType, invalid] : {std::pair(PixelFloat, std::nan("")), {PixelInt16, -32768.0}}) {
    const auto whole = echoes(pixelType)->mem();
    const auto cut = [&](double rest, std::shared_ptr<const Mask> mask) {
      SharedImage image(Tests::imageOf(whole->descriptor(), [&](int x, int y, int, int) {
        return y < 200 ? whole->valueAsDouble(x, y, 0, 0) : rest;
      }));
      image.setMask(std::move(mask));
      return process(image, {{"referenceAmplitude", "90"}}).first;
    };
    const auto masked = cut(invalid, std::make_shared<IntensityMask>(pixelType, invalid));
    EXPECT_EQ(masked->mask(), nullptr);
    EXPECT_TRUE(Tests::sameBytes(*masked->mem(), *cut(0.0, nullptr)->mem()));
  }
}

TEST_F(EnvelopeDetection, ReportsBadInputByANullImage) {
  const std::string name = "4 EnvelopeDetectionAlgorithm: ";
  const std::string frequencies = name + "Expected a positive sampling frequency and a finite demodulation frequency, ";
  const SharedImage image(ImageDescriptor(PixelFloat, 2, 3)); // without pixels
  const std::pair<Values, std::string> cases[] = {
      {{{"samplingFrequency", "0"}}, frequencies + "got 0 and 5"},
      {{{"samplingFrequency", "30"}, {"demodulationFrequency", "nan"}}, frequencies + "got 30 and nan"},
      {{{"decimationFactor", "0"}}, name + "Expected a decimation factor of at least 1, got 0"},
      {{}, name + "The image (float, 2 x 3 x 1, 1 channel) has no pixels"},
  };
  for (const auto& [values, reason] : cases) {
    DataComponentList components;
    components.add<FrameGeometryMetadata>();
    const Tests::ExpectedLog log;
    const auto [result, after] = process(image, values, components);
    EXPECT_EQ(result, nullptr);
    EXPECT_TRUE(after.empty());
    EXPECT_EQ(log.messages(), (std::vector<std::string>{reason, name + "Filter did not produce an output"}));
  }
  const Tests::ExpectedLog log;
  EXPECT_EQ(process(SharedImage(ImageDescriptor(PixelFloat, 2, 3, 1, 2)), {}).first, nullptr) << "IQ without pixels";
  EXPECT_TRUE(log.contains("has no pixels"));
}

TEST_F(EnvelopeDetection, TakesImagesOfAnyNumberOfChannels) {
  SharedImageSet images;
  images.setModality(Data::Ultrasound);
  EXPECT_FALSE(EnvelopeDetectionAlgorithm::createCompatible({&images}, nullptr)) << "without images";
  images.add(std::make_shared<SharedImage>(ImageDescriptor(PixelFloat, 2, 3, 2, 3)));
  EXPECT_TRUE(EnvelopeDetectionAlgorithm::createCompatible({&images}, nullptr));
}

} // namespace
} // namespace Kelvaris::US
