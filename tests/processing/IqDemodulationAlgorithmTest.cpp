#include "processing/IqDemodulationAlgorithm.h"

#include "Stream/ImageStream.h"
#include "gpu/IqDemodulation.h"
#include "model/ChannelDataLayout.h"
#include "processing/ChannelDataCases.h"
#include "support/DeviceTest.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

namespace Kelvaris::US {
namespace {

using Axis = ChannelDataLayout::Axis;
using Tests::equal, Tests::ExpectedLog, Tests::ultrasoundNoise;

constexpr double fs = 20e6, fd = 4e6;

FrameAcquisition acquisition(double samplingFrequency = fs) {
  return Tests::twoEvents(samplingFrequency, fd);
}

void configure(IqDemodulationAlgorithm& algorithm, const char* samplingFrequency, const char* demodulationFrequency,
               const char* decimationFactor) {
  Tests::set(algorithm, {{"samplingFrequency", samplingFrequency},
                         {"demodulationFrequency", demodulationFrequency},
                         {"decimationFactor", decimationFactor}});
}

class IqDemodulationAlgorithmTest : public Tests::DeviceTest<> {
protected:
  IqDemodulationAlgorithmTest() { components.add<FrameAcquisition>(acquisition()); }

  /// What the demodulator alone makes of `image`.
  std::shared_ptr<SharedImage> expected(double samplingFrequency, double demodulationFrequency, int factor,
                                        int axis = 1) const {
    return GPU::IqDemodulation().demodulate(*image, samplingFrequency, demodulationFrequency, factor, axis, 1.0, 101);
  }

  std::shared_ptr<SharedImage> image = ultrasoundNoise({PixelFloat, 9, 150, 2});
  DataComponentList components;
  IqDemodulationAlgorithm algorithm{nullptr};
};

TEST_F(IqDemodulationAlgorithmTest, AcceptsOneChannelAndVolumeStreams) {
  ImageStream flat("images");
  EXPECT_FALSE(IqDemodulationAlgorithm::createCompatible({&flat}, nullptr));
  for (const int channels : {1, 2}) {
    SharedImageSet images;
    images.setModality(Data::Ultrasound);
    images.add(ultrasoundNoise({PixelFloat, 3, 5, 1, channels}));
    EXPECT_EQ(IqDemodulationAlgorithm::createCompatible({&images}, nullptr), channels == 1);
  }
}

TEST_F(IqDemodulationAlgorithmTest, FrequenciesComeFromTheFirstEventUnlessTheyAreSet) {
  const struct {
    const char *samplingFrequency, *demodulationFrequency, *decimationFactor;
    double usedSampling, usedDemodulation;
    int factor;
    ChannelDataLayout layout = {};
  } cases[] = {{"", "", "1", fs, fd, 1},
               {"", "", "4", fs, fd, 4, {Axis::Channels, Axis::SlowTime, Axis::FastTime}},
               {"13e6", "", "2", 13e6, fd, 2},
               {"", "-1.6667e6", "3", fs, -1.6667e6, 3},
               {"20", "1e-4", "2", 20.0, 1e-4, 2}}; // both set: nothing is doubted
  for (const auto& c : cases) {
    components.add<ChannelDataLayout>(c.layout);
    IqDemodulationAlgorithm fresh(nullptr);
    configure(fresh, c.samplingFrequency, c.demodulationFrequency, c.decimationFactor);
    const auto [result, updated] = fresh.processImage(*image, components);
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(equal(*result, *expected(c.usedSampling, c.usedDemodulation, c.factor, c.layout.fastTimeAxisIndex())))
        << c.samplingFrequency << ", " << c.demodulationFrequency;
    EXPECT_EQ(result->modality(), Data::Ultrasound);
    EXPECT_EQ(*updated.get<ChannelDataLayout>(), c.layout);
    // The acquisition's own rates are divided, whatever the computation took, and nothing else changes.
    FrameAcquisition divided = acquisition();
    for (PulseEchoEvent& event : divided.events())
      event.receive.samplingFrequency /= c.factor;
    EXPECT_EQ(*updated.get<FrameAcquisition>(), divided);
  }
}

TEST_F(IqDemodulationAlgorithmTest, ImagesWithoutAcquisitionNeedBothFrequencies) {
  DataComponentList plain;
  plain.add<ChannelDataLayout>(Axis::FastTime, Axis::Channels, Axis::SlowTime);
  configure(algorithm, "20", "5", "2");
  const auto [result, updated] = algorithm.processImage(*image, plain);
  ASSERT_NE(result, nullptr);
  EXPECT_TRUE(equal(*result, *expected(20.0, 5.0, 2, 0)));
  EXPECT_EQ(updated.size(), 1u);
}

TEST_F(IqDemodulationAlgorithmTest, OnlyANewAcquisitionRenewsTheOutputAcquisition) {
  const auto rate = [&](double samplingFrequency, const char* factor) {
    configure(algorithm, "", "", factor);
    components.add<FrameAcquisition>(acquisition(samplingFrequency));
    const DataComponentList updated = algorithm.processImage(*image, components).second;
    return updated.get<FrameAcquisition>()->events()[0].receive.samplingFrequency;
  };
  EXPECT_EQ(rate(20e6, "4"), 5e6);
  EXPECT_EQ(rate(32e6, "4"), 8e6);
  EXPECT_EQ(rate(32e6, "2"), 8e6);
  EXPECT_EQ(rate(40e6, "1"), 40e6);
}

TEST_F(IqDemodulationAlgorithmTest, WarnsOnceOfAFrequencyThatCannotBeInHertz) {
  ExpectedLog log;
  configure(algorithm, "", "5", "1");
  for (int frame = 0; frame < 2; ++frame)
    EXPECT_NE(algorithm.processImage(*image, components).first, nullptr);
  ASSERT_EQ(log.messages().size(), 1u);
  EXPECT_TRUE(log.contains("3 IqDemodulationAlgorithm: Sampling and demodulation frequency are 2e+07 and 5"));
}

TEST_F(IqDemodulationAlgorithmTest, RefusesWhatItCannotDemodulate) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  const std::string scaled = "Input image has shift or scale applied. This is not supported.";
  const std::string unset = "Sampling frequency and demodulation frequency must be set for non-channel data";
  const std::string absurd = "Expected a positive sampling frequency and a finite demodulation frequency, got ";
  DataComponentList none, withoutEvents;
  withoutEvents.add<FrameAcquisition>();
  const struct {
    std::string message;
    double shift, scale;
    const char *samplingFrequency, *demodulationFrequency;
    DataComponentList components;
  } cases[] = {{scaled, 1.0, 1.0, "", "", components},
               {scaled, 0.0, nan, "", "", components},
               {unset, 0.0, 1.0, "20", "", none},
               {unset, 0.0, 1.0, "", "5", none},
               {absurd + "0 and 4000000", 0.0, 1.0, "0", "", components},
               {absurd + "20000000 and nan", 0.0, 1.0, "", "nan", components},
               {"The frame acquisition has no events", 0.0, 1.0, "", "", withoutEvents}};
  for (const auto& c : cases) {
    IqDemodulationAlgorithm fresh(nullptr);
    configure(fresh, c.samplingFrequency, c.demodulationFrequency, "1");
    ImageDescriptor descriptor(PixelFloat, 4, 20);
    descriptor.setShift(c.shift);
    descriptor.setScale(c.scale);
    const SharedImage input(std::make_shared<TypedImage<float>>(descriptor));
    const ExpectedLog log;
    const auto [result, updated] = fresh.processImage(input, c.components);
    EXPECT_EQ(result, nullptr) << c.message;
    EXPECT_TRUE(updated.empty());
    EXPECT_EQ(log.messages().size(), 1u);
    EXPECT_TRUE(log.contains("4 IqDemodulationAlgorithm: " + c.message)) << c.message;
  }
  configure(algorithm, "", "", "0");
  EXPECT_EQ(Tests::errorOf([&] { algorithm.processImage(*image, components); }), "Decimation factor must be positive")
      << "exceptions of the demodulator pass";
}

} // namespace
} // namespace Kelvaris::US
