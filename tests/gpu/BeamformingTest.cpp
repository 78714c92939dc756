#include "gpu/Beamforming.h"

#include "US/FrameGeometryLinear.h"
#include "beamforming/BeamformingCases.h"
#include "model/ChannelDataLayout.h"
#include "support/DeviceTest.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"
#include "support/IntensityMaskOf.h"

namespace Kelvaris::US::GPU {
namespace {

using Eigen::Vector3d;
using Kelvaris::Tests::ExpectedLog, Kelvaris::Tests::sameBytes;
using Tests::noise, Tests::planeWaves;

class BeamformingTest : public Kelvaris::Tests::DeviceTest<> {
protected:
  struct Options {
    double fNumber = 1.0;
    BeamformerType type = BeamformerType::UnweightedDas;
    bool compounding = true;
    ChannelDataLayout layout = {};
  };
  static std::shared_ptr<SharedImage> beamform(const Beamforming& beamforming, const SharedImage& data,
                                               const ImageDescriptor& output, const SharedImage& positions,
                                               const Options& options) {
    FrameGeometryLinear geometry;
    geometry.setImgDescPrescan(output);
    return beamforming.beamform(data, options.layout, geometry, positions, options.fNumber, 1.0, options.type,
                                options.compounding);
  }

  /// Positions in steps of 0.25 and 0.4 mm.
  static SharedImage grid(int width, int height) {
    return SharedImage(Kelvaris::Tests::imageOf({PixelFloat, width, height, 1, 2}, [](int x, int y, int, int channel) {
      return channel == 0 ? -1.0 + 0.25 * x : 4.0 + 0.4 * y;
    }));
  }
};

TEST_F(BeamformingTest, WorkmodeFollowsTheFirstTwoEvents) {
  const Transducer transducer = Transducer::createLinear(16, 0.3);
  const auto focused = PulseEchoEvent::createFocused(transducer, Vector3d::Zero(), {0, 9, 0}, 16, 16);
  const auto plane = PulseEchoEvent::createPlaneWave(transducer, Vector3d::Zero(), 0, 16, 16);
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  // With F-number 0 the aperture is all 16 elements; three columns, two slices, of which some have no event.
  const struct {
    const char* what;
    std::vector<PulseEchoEvent> events;
    bool compounding;
    std::vector<double> expected; ///< aperture sizes of the columns of the first and the second slice; NaN is invalid
  } cases[] = {
      {"two focused events: column per event", {focused, focused}, true, {16, 16, nan, 16, 16, nan}},
      {"focused, whatever the third", {focused, focused, plane}, false, {16, 16, 16, 16, 16, 16}},
      {"one focused event is not focused", {focused}, true, {16, 16, 16, 16, 16, 16}},
      {"compounds add", {plane, focused, focused}, true, {48, 48, 48, 48, 48, 48}},
      {"one slice per event", {plane}, false, {16, 16, 16, nan, nan, nan}},
  };
  for (const auto& c : cases) {
    const SharedImage data(MemImage::create({PixelFloat, 16, 4, static_cast<int>(c.events.size())}));
    const auto image = beamform(Beamforming(FrameAcquisition(transducer, c.events)), data, {PixelFloat, 3, 1, 2},
                                grid(3, 1), {0.0, BeamformerType::DebugApertureSize, c.compounding});
    ASSERT_TRUE(image && image->mask()) << c.what;
    EXPECT_TRUE(image->hasForm(ImageForm::Device) && !image->hasForm(ImageForm::Mem)) << "stays on the device";
    EXPECT_TRUE(intensityMask(*image).isMasked(nan));
    EXPECT_EQ(Kelvaris::Tests::worstError(
                  *image->mem(),
                  [&](int x, int, int slice, int) { return c.expected[static_cast<std::size_t>(3 * slice + x)]; }),
              0.0)
        << c.what;
  }
}

TEST_F(BeamformingTest, MoreEntriesOfSlowTimeThanEventsAreLeftOutWithOneWarning) {
  const FrameAcquisition acquisition = planeWaves(3);
  const auto data = noise(acquisition);
  TypedImage<float> longer(data->width(), data->height(), 5);
  std::memcpy(longer.data(), data->data(), data->byteSize());
  using Axis = ChannelDataLayout::Axis;
  const ChannelDataLayout layout(Axis::SlowTime, Axis::FastTime, Axis::Channels);
  const Beamforming beamforming(acquisition);
  const ImageDescriptor output(PixelFloat, 9, 11);
  const auto expected = beamform(beamforming, SharedImage(data), output, grid(9, 11), {});
  const SharedImage permuted(permuteChannelData(longer, {}, layout));
  const ExpectedLog log;
  for (int i = 0; i < 2; ++i)
    EXPECT_TRUE(
        sameBytes(*beamform(beamforming, permuted, output, grid(9, 11), {.layout = layout})->mem(), *expected->mem()));
  ASSERT_EQ(log.messages().size(), 1u) << "one warning per object";
  EXPECT_CONTAINS(log.messages()[0], "5 entries of slow time, but the acquisition has 3 events");
}

TEST_F(BeamformingTest, PixelsBeyondThePositionsAreInvalid) {
  const FrameAcquisition acquisition = planeWaves();
  const auto image =
      beamform(Beamforming(acquisition), SharedImage(noise(acquisition)), {PixelFloat, 4, 4}, grid(2, 3), {});
  ASSERT_TRUE(image);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x)
      EXPECT_EQ(std::isnan(image->mem()->valueAsDouble(x, y, 0, 0)), x >= 2 || y >= 3) << x << ", " << y;
}

TEST_F(BeamformingTest, RefusesWhatDoesNotFit) {
  struct Input {
    FrameAcquisition acquisition = planeWaves(3);
    ImageDescriptor data{PixelFloat, 16, 100, 3}, output{PixelFloat, 4, 4}, positions{PixelFloat, 4, 4, 1, 2};
    ChannelDataLayout layout{};
    auto& receive(std::size_t event) { return acquisition.events()[event].receive; }
  };
  using Axis = ChannelDataLayout::Axis;
  const struct {
    const char* message;
    void (*change)(Input&);
  } cases[] = {
      {"Unsupported input data type for beamforming.", [](Input& i) { i.data.setChannels(3); }},
      {"Unsupported input data type for beamforming.", [](Input& i) { i.data.setPixelType(PixelUInt8); }},
      {"Event 1 receives on elements 0 to 16, but the array has elements 0 to 15",
       [](Input& i) { i.receive(1).apertureLast = 16; }},
      {"Event 2 receives on 16 elements (0 to 15), but maps only 7",
       [](Input& i) { i.receive(2).elementToChannelMapping.resize(7); }},
      {"Event 1 maps element 9 to channel 16, but the channel data have channels 0 to 15",
       [](Input& i) { i.receive(1).elementToChannelMapping[9] = 16; }},
      {"0 events and 16 elements", [](Input& i) { i.acquisition.events().clear(); }},
      {"must have the pixel type and components", [](Input& i) { i.data.setChannels(2); }},
      {"Sample positions must be", [](Input& i) { i.positions.setChannels(1); }},
      {"is not valid", [](Input& i) { i.output.setDimensions(Eigen::Vector3i(4, 0, 1)); }},
      {"once each, not 0 0 2",
       [](Input& i) { i.layout = ChannelDataLayout(Axis::Channels, Axis::Channels, Axis::SlowTime); }},
      {"20000000 samples per channel, at most 16777216",
       [](Input& i) { i.data.setDimensions(Eigen::Vector3i(16, 20000000, 3)); }},
  };
  for (const auto& c : cases) {
    Input input;
    c.change(input);
    const ExpectedLog log;
    // Images without pixels: nothing may be touched before the checks are done.
    EXPECT_FALSE(beamform(Beamforming(input.acquisition), SharedImage(input.data), input.output,
                          SharedImage(input.positions), {.layout = input.layout}));
    EXPECT_TRUE(log.contains(c.message)) << c.message << "\n" << ::testing::PrintToString(log.messages());
  }
}

} // namespace
} // namespace Kelvaris::US::GPU
