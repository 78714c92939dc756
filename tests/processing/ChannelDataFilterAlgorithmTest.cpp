#include "processing/ChannelDataFilterAlgorithm.h"

#include "Stream/ImageStream.h"
#include "gpu/ConvolutionFilter1D.h"
#include "model/ChannelDataLayout.h"
#include "processing/ChannelDataCases.h"
#include "support/DeviceTest.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

namespace Kelvaris::US {
namespace {

using Axis = ChannelDataLayout::Axis;
using Signal::FilterType;
using Tests::equal, Tests::errorOf, Tests::ExpectedLog, Tests::set, Tests::ultrasoundNoise;

constexpr double fs = 40e6, pulseFrequency = 4e6;
constexpr int length = 51;

FrameAcquisition acquisition(double samplingFrequency = fs) {
  return Tests::twoEvents(samplingFrequency, pulseFrequency);
}

class ChannelDataFilterAlgorithmTest : public Tests::DeviceTest<> {
protected:
  ChannelDataFilterAlgorithmTest() {
    images.setModality(Data::Ultrasound);
    images.add(image);
    components.add<FrameAcquisition>(acquisition());
    images.elementwiseComponents().add(components, 0);
  }

  /// What the filter alone makes of `image`; cut-offs in Hz.
  std::shared_ptr<SharedImage> expected(FilterType type, double lower, double upper, double rate = fs,
                                        int taps = length, int axis = 1) const {
    const auto kernel = Signal::createFirFilter(type, static_cast<float>(rate), static_cast<float>(lower),
                                                static_cast<float>(upper), taps, 0);
    return GPU::ConvolutionFilter1D(kernel).apply(*image, axis);
  }
  std::shared_ptr<SharedImage> expectedByDefault(double rate = fs, int taps = length, int axis = 1) const {
    return expected(FilterType::Bandpass, 0.25 * pulseFrequency, 1.75 * pulseFrequency, rate, taps, axis);
  }

  std::shared_ptr<SharedImage> image = ultrasoundNoise({PixelFloat, 9, 150, 2});
  SharedImageSet images;
  DataComponentList components;
};

TEST_F(ChannelDataFilterAlgorithmTest, AcceptsVolumesOfChannelData) {
  ImageStream stream("probe");
  SharedImageSet flat, plain, eventless;
  for (SharedImageSet* set : {&flat, &plain, &eventless})
    set->setModality(Data::Ultrasound);
  flat.add(ultrasoundNoise({PixelFloat, 9, 150}));
  flat.elementwiseComponents().add(components, 0);
  plain.add(image);
  eventless.add(image);
  eventless.components().add<FrameAcquisition>();
  EXPECT_TRUE(ChannelDataFilterAlgorithm::createCompatible({&images}, nullptr));
  EXPECT_FALSE(ChannelDataFilterAlgorithm::createCompatible({&flat}, nullptr));
  EXPECT_FALSE(ChannelDataFilterAlgorithm::createCompatible({&plain}, nullptr));
  EXPECT_FALSE(ChannelDataFilterAlgorithm::createCompatible({&images, &stream}, nullptr)) << "one at a time";
  images.setModality(Data::UnknownModality);
  EXPECT_FALSE(ChannelDataFilterAlgorithm::createCompatible({&images}, nullptr));

  for (const SharedImageSet* set :
       {static_cast<const SharedImageSet*>(nullptr), static_cast<const SharedImageSet*>(&plain)})
    EXPECT_EQ(errorOf<std::invalid_argument>([&] { ChannelDataFilterAlgorithm{set}; }),
              "imageSet does not represent channel data");
  EXPECT_EQ(errorOf<std::out_of_range>([&] { ChannelDataFilterAlgorithm{&eventless}; }),
            "The frame acquisition has no events");
  EXPECT_EQ(errorOf<std::invalid_argument>([] { ChannelDataFilterAlgorithm::getDataSamplingFrequency({}); }),
            "There is no frame acquisition among the components");
}

TEST_F(ChannelDataFilterAlgorithmTest, FiltersWithWhatIsSet) {
  const struct {
    const char *type, *lower, *upper, *taps;
    std::shared_ptr<SharedImage> image;
    ChannelDataLayout layout = {};
  } cases[] = {
      {"2", "1", "7", "51", expectedByDefault(fs, length, 2), {Axis::Channels, Axis::SlowTime, Axis::FastTime}},
      {"0", "1", "5.5", "51", expected(FilterType::Lowpass, 0.0, 5.5e6)},
      {"1", "2.125", "3", "31", expected(FilterType::Highpass, 2.125e6, 0.0, fs, 31)}};
  for (const auto& c : cases) {
    ChannelDataFilterAlgorithm algorithm(&images);
    set(algorithm, {{"filterType", c.type},
                    {"cutoffFrequencyLower", c.lower},
                    {"cutoffFrequencyUpper", c.upper},
                    {"filterLength", c.taps}});
    if (c.layout != ChannelDataLayout()) components.add<ChannelDataLayout>(c.layout);
    const auto [result, updated] = algorithm.processImage(*image, components);
    components.erase<ChannelDataLayout>();
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(equal(*result, *c.image)) << c.type;
    EXPECT_EQ(result->modality(), Data::Ultrasound);
    EXPECT_EQ(*updated.get<FrameAcquisition>(), acquisition());
    EXPECT_EQ(*updated.get<ChannelDataLayout>(), c.layout);
  }
}

TEST_F(ChannelDataFilterAlgorithmTest, DesignsWithTheFirstFrameAndWithEveryChangeAfterIt) {
  ChannelDataFilterAlgorithm algorithm(&images);
  const auto isFilteredBy = [&](const SharedImage& expectedImage) {
    return equal(*algorithm.processImage(*image, components).first, expectedImage);
  };
  const std::string even = "Even filter length is not supported. Given length: ";
  const auto errorOfLength = [&](const char* text) {
    return errorOf<std::invalid_argument>([&] { set(algorithm, {{"filterLength", text}}); });
  };
  // Nothing is designed before the first frame, so nothing is wrong with the length until then.
  EXPECT_EQ(errorOfLength("50"), "");
  EXPECT_THROW(algorithm.processImage(*image, components), std::invalid_argument);
  EXPECT_EQ(errorOfLength("51"), "");
  EXPECT_TRUE(isFilteredBy(*expectedByDefault()));

  // From now on the change itself throws, and the frames that follow have the filter from before.
  EXPECT_EQ(errorOfLength("50"), even + "50");
  EXPECT_TRUE(isFilteredBy(*expectedByDefault()));
  EXPECT_EQ(errorOfLength("-3"), "A filter has a length of at least 1, not -3");
  EXPECT_TRUE(isFilteredBy(*expectedByDefault()));
  EXPECT_EQ(errorOfLength("21"), "");
  EXPECT_TRUE(isFilteredBy(*expectedByDefault(fs, 21)));
  set(algorithm, {{"cutoffFrequencyUpper", "5"}});
  EXPECT_TRUE(isFilteredBy(*expected(FilterType::Bandpass, 1e6, 5e6, fs, 21)));
  set(algorithm, {{"filterType", "0"}});
  EXPECT_TRUE(isFilteredBy(*expected(FilterType::Lowpass, 1e6, 5e6, fs, 21)));

  // Another rate: the cut-offs stay where they are in Hz.
  components.add<FrameAcquisition>(acquisition(30e6));
  EXPECT_TRUE(isFilteredBy(*expected(FilterType::Lowpass, 1e6, 5e6, 30e6, 21)));
}

TEST_F(ChannelDataFilterAlgorithmTest, RefusesWhatItCannotFilter) {
  const std::string category = "4 ChannelDataFilterAlgorithm: ";
  const std::string scaled = category + "Input image has shift or scale applied. This is not supported.";
  DataComponentList still, axisless = components;
  still.add<FrameAcquisition>(acquisition(0.0));
  axisless.add<ChannelDataLayout>(Axis::Channels, Axis::Channels, Axis::SlowTime);
  const struct {
    std::vector<std::string> messages;
    const DataComponentList& components;
    double shift = 0.0, scale = 1.0;
  } cases[] = {
      {{scaled}, components, 1.0},
      {{scaled}, components, 0.0, 2.0},
      {{category + "Input data is not channel data"}, DataComponentList()},
      {{category + "Filter not instantiated, cannot compute"}, still},
      {{"4 : Failed to apply convolution filter 1D", category + "Filter did not produce an output"}, axisless}};
  for (const auto& c : cases) {
    ImageDescriptor descriptor(PixelFloat, 4, 20, 2);
    descriptor.setShift(c.shift);
    descriptor.setScale(c.scale);
    const SharedImage input(std::make_shared<TypedImage<float>>(descriptor));
    ExpectedLog log;
    const auto [result, updated] = ChannelDataFilterAlgorithm(&images).processImage(input, c.components);
    EXPECT_EQ(result, nullptr) << c.messages[0];
    EXPECT_TRUE(updated.empty());
    EXPECT_EQ(log.messages(), c.messages);
  }
  DataComponentList eventless;
  eventless.add<FrameAcquisition>();
  EXPECT_THROW(ChannelDataFilterAlgorithm(&images).processImage(*image, eventless), std::out_of_range);
}

} // namespace
} // namespace Kelvaris::US
