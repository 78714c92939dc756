#include "imaging/EnvelopeDetectionAlgorithm.h"

#include "GL/RequireGL.h"
#include "Lib/IntensityMask.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "imaging/LogCompressionAlgorithm.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"
#include "support/Samples.h"

namespace Kelvaris::US {
namespace {

using EnvelopeDetection = Tests::GLTest<>;
using Values = std::map<std::string, std::string>;

// A tissue of 1.54 mm/us, rows 0.025 mm apart, echoes of 5 MHz from the centre of row 180 of 400.
constexpr int kTargetRow = 180, kRows = 400;
constexpr double kRowSpacing = 0.025, kFrequency = 5.0, kSamplingFrequency = 1.54 / (2.0 * kRowSpacing);

double gaussian(double row) {
  return std::exp(-0.5 * std::pow((row - kTargetRow) / 20.0, 2));
}

/// Each column holds the same echo, with a phase of its own.
std::shared_ptr<SharedImage> burst(int pixelType, double amplitude, int width = 3) {
  ImageDescriptor descriptor(pixelType, width, kRows);
  descriptor.setSpacing({0.3, kRowSpacing, 1.0});
  auto image = std::make_shared<SharedImage>(Tests::imageOf(descriptor, [&](int x, int y, int, int) {
    const double phase = 2.0 * std::numbers::pi * kFrequency * (y - kTargetRow) / kSamplingFrequency + 0.9 * x;
    return Tests::stored(amplitude * gaussian(y) * std::cos(phase), pixelType);
  }));
  image->setModality(Data::Ultrasound);
  return image;
}

/// Sets what is told, and the frequencies of the burst where nothing else is.
void configure(Algorithm& algorithm, Values values) {
  values.insert({{"samplingFrequency", std::to_string(kSamplingFrequency)},
                 {"demodulationFrequency", std::to_string(kFrequency)}});
  Properties properties;
  for (const auto& [key, value] : values)
    properties.setParam(key, value);
  algorithm.configure(&properties);
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList> process(const SharedImage& image, const Values& values,
                                                                   const DataComponentList& components = {}) {
  EnvelopeDetectionAlgorithm algorithm(nullptr);
  configure(algorithm, values);
  return algorithm.processImage(image, components);
}

TEST_F(EnvelopeDetection, TheEnvelopeOfAToneBurstHasItsAmplitudeAtItsPlace) {
  const struct {
    const char* what;
    int pixelType;
    double amplitude;
    int width, factor;
    bool isCompressed;
  } cases[] = {{"float", PixelFloat, 7.0, 3, 1, true},
               {"16 bits, half the rows", PixelInt16, 3000.0, 3, 2, true},
               {"one column, a third of the rows", PixelFloat, 7.0, 1, 3, true},
               {"IQ", PixelFloat, 7.0, 3, 1, false},
               {"IQ of 16 bits", PixelInt16, 3000.0, 3, 4, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    FrameGeometryLinear geometry;
    geometry.setImgDescPrescan(ImageDescriptor(c.pixelType, c.width, kRows, 1, 2)); // the Cartesian one stays invalid
    DataComponentList components;
    components.add<FrameGeometryMetadata>(geometry);
    const auto [result, after] = process(*burst(c.pixelType, c.amplitude, c.width),
                                         {{"normalizeEnvelope", "false"},
                                          {"dynamicRange", "70"},
                                          {"referenceAmplitude", std::to_string(10.0 * c.amplitude)},
                                          {"decimationFactor", std::to_string(c.factor)},
                                          {"logCompression", c.isCompressed ? "true" : "false"}},
                                         components);
    ASSERT_NE(result, nullptr);
    const ImageDescriptor& d = result->descriptor();
    EXPECT_EQ(d.pixelType(), c.isCompressed ? PixelFloat : c.pixelType);
    EXPECT_EQ(d.channels(), c.isCompressed ? 1 : 2);
    EXPECT_EQ(d.height(), (kRows + c.factor / 2) / c.factor);
    EXPECT_NEAR(d.spacing().y() * d.height(), kRows * kRowSpacing, 1e-12);
    EXPECT_EQ(result->modality(), Data::Ultrasound);
    const FrameGeometry& frame = *after.get<FrameGeometryMetadata>()->frameGeometry();
    EXPECT_EQ(frame.imgDescPrescan().pixelType(), c.isCompressed ? PixelFloat : c.pixelType);
    EXPECT_EQ(frame.imgDescPrescan().height(), kRows) << "the geometry keeps its size";

    const auto pixels = result->mem();
    const auto decibels = [&](int x, int y) {
      if (c.isCompressed) return pixels->valueAsDouble(x, y, 0, 0);
      return 20.0 * std::log10(std::hypot(pixels->valueAsDouble(x, y, 0, 0), pixels->valueAsDouble(x, y, 0, 1)) /
                               (10.0 * c.amplitude));
    };
    for (int x = 0; x < d.width(); ++x) {
      for (int y = 0; y < d.height(); ++y) {
        const double row = (y + 0.5) * d.spacing().y() / kRowSpacing - 0.5;
        if (gaussian(row) > 0.25) { // where the filter's leakage is small
          EXPECT_NEAR(decibels(x, y), -20.0 + 20.0 * std::log10(gaussian(row)), 0.25) << "row " << y;
        }
      }
      EXPECT_LE(decibels(x, d.height() - 1), -70.0) << "far from the burst";
    }
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
    const auto whole = burst(pixelType, 3000.0)->mem();
    const auto cut = [&](double rest, std::shared_ptr<const Mask> mask) {
      SharedImage image(Tests::imageOf(whole->descriptor(), [&](int x, int y, int, int) {
        return y < 200 ? whole->valueAsDouble(x, y, 0, 0) : rest;
      }));
      image.setMask(std::move(mask));
      return process(image, {{"referenceAmplitude", "3000"}}).first;
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
