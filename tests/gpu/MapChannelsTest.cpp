#include "gpu/MapChannelsAndTranspose.h"

#include "support/DeviceTest.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Samples.h"

#include <numeric>

namespace Kelvaris::US::GPU {
namespace {

using Axis = ChannelDataLayout::Axis;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

/// Events that receive on elements `first` to `first` + mapping size - 1.
FrameAcquisition acquisition(const std::vector<std::vector<int>>& mappings, const std::vector<int>& first = {}) {
  std::vector<PulseEchoEvent> events(mappings.size());
  for (std::size_t v = 0; v < events.size(); ++v) {
    PulseEchoEvent::Receive& receive = events[v].receive;
    receive.apertureFirst = first.empty() ? 0 : first[v];
    receive.apertureLast = receive.apertureFirst + static_cast<int>(mappings[v].size()) - 1;
    receive.samplingFrequency = 20e6;
    receive.elementToChannelMapping = mappings[v];
  }
  return FrameAcquisition(Transducer(), events);
}

std::vector<int> inOrder(int channels) {
  std::vector<int> mapping(static_cast<std::size_t>(channels));
  std::iota(mapping.begin(), mapping.end(), 0);
  return mapping;
}

struct Shape {
  int channels, samples, events; ///< of the data
  int aperture;                  ///< elements that receive
};

class MapChannels : public Tests::DeviceTest<::testing::TestWithParam<std::tuple<int, int, int>>> {};

TEST_P(MapChannels, PutsEverySampleWhereAPlainLoopPutsIt) {
  const auto [pixelType, components, order] = GetParam();
  Axis axes[] = {Axis::Channels, Axis::FastTime, Axis::SlowTime};
  for (int i = 0; i < order; ++i)
    std::next_permutation(std::begin(axes), std::end(axes));
  const ChannelDataLayout layout(axes[0], axes[1], axes[2]);

  // Fewer and more channels than receive, sizes that no tile divides, one of each.
  std::vector<Shape> shapes = {{5, 70, 3, 5}, {37, 41, 19, 33}, {33, 64, 2, 70}, {1, 1, 1, 1}, {700, 3, 2, 700}};
  // One that no cache holds: on the CPU it is written past the caches.
  if (pixelType == PixelInt16 && components == 1 && order % 4 == 1) shapes.push_back({136, 1027, 64, 136});
  std::mt19937 random(static_cast<unsigned>(order + 1));
  for (const Shape& shape : shapes) {
    SCOPED_TRACE(fmt::format("{} channels, {} samples, {} events, {} elements", shape.channels, shape.samples,
                             shape.events, shape.aperture));
    const auto eventCount = static_cast<std::size_t>(shape.events);
    std::vector<std::vector<int>> from(eventCount, inOrder(shape.aperture)), to = from;
    std::vector<int> first(eventCount);
    for (std::size_t v = 1; v < eventCount; ++v) { // the first event stays in order
      std::shuffle(from[v].begin(), from[v].end(), random);
      std::shuffle(to[v].begin(), to[v].end(), random);
      first[v] = static_cast<int>(random() % 9);
    }
    const MapChannelsAndTranspose remapper(acquisition(from, first), acquisition(to, first));

    const Eigen::Vector3i extent = layout.packVec(shape.channels, shape.samples, shape.events);
    ImageDescriptor descriptor(pixelType, extent.x(), extent.y(), extent.z(), components);
    descriptor.setSpacing({0.1, 0.2, 0.3});
    const auto data = Tests::imageOf(descriptor, [&](int, int, int, int) { return 1 + random() % 30000; });
    const auto result = remapper.mapAndTranspose(SharedImage(data), layout);
    ASSERT_TRUE(result);
    const ImageDescriptor& d = result->descriptor();
    EXPECT_EQ(d.dimensions(), Eigen::Vector3i(shape.channels, shape.samples, shape.events));
    EXPECT_EQ(d.spacing(), descriptor.spacing()) << "the spacing is the input's as it stands";

    const double error = Tests::worstError(*result->mem(), [&](int c, int s, int v, int i) {
      const auto &targets = to[static_cast<std::size_t>(v)], &sources = from[static_cast<std::size_t>(v)];
      const auto k = static_cast<std::size_t>(std::find(targets.begin(), targets.end(), c) - targets.begin());
      const int m = k < sources.size() ? sources[k] : shape.channels;
      const Eigen::Vector3i p = layout.packVec(m, s, v);
      return m >= shape.channels ? 0.0 : data->valueAsDouble(p.x(), p.y(), p.z(), i);
    });
    EXPECT_EQ(error, 0.0);
  }
}

INSTANTIATE_TEST_SUITE_P(Types, MapChannels,
                         ::testing::Combine(::testing::Values(PixelInt16, PixelFloat), ::testing::Values(1, 2),
                                            ::testing::Range(0, 6)));

class MapChannelsErrors : public Tests::DeviceTest<> {};

TEST_F(MapChannelsErrors, AcquisitionsThatDoNotFitAreRefused) {
  constexpr const char* mismatch = "Input and output FrameAcquisition do not match";
  struct Case {
    std::function<void(PulseEchoEvent& in, PulseEchoEvent& out)> change; ///< of the second events
    const char* error;
  };
  const Case cases[] = {
      {[](auto& in, auto&) { in.transmit.pulseFrequency = 1; }, mismatch},
      {[](auto& in, auto&) { in.receive.apertureFirst = 1; }, mismatch},
      {[](auto& in, auto&) { in.receive.endTime = 1; }, mismatch},
      {[](auto& in, auto& out) { in.receive.startTime = out.receive.startTime = kNan; }, mismatch},
      {[](auto& in, auto& out) { in.receive.apertureLast = out.receive.apertureLast = 2; },
       "Inconsistent receive channels across output FrameAcquisition"},
      {[](auto& in, auto&) { in.receive.elementToChannelMapping.pop_back(); },
       "Event 1 of the input FrameAcquisition receives on 4 elements (0 to 3), but maps only 3 of them to channels"},
      {[](auto& in, auto&) { in.receive.elementToChannelMapping[2] = -7; },
       "Event 1 of the input FrameAcquisition maps element 2 to channel -7; channels count from 0"},
      {[](auto&, auto& out) { out.receive.elementToChannelMapping[3] = 4; },
       "Event 1 of the output FrameAcquisition maps element 3 to channel 4, but its aperture has the channels 0 to 3"},
  };
  const auto errorOf = [](const FrameAcquisition& input, const FrameAcquisition& output) {
    return Tests::errorOf<std::runtime_error>([&] { MapChannelsAndTranspose(input, output); });
  };
  const FrameAcquisition two = acquisition({inOrder(4), inOrder(4)});
  for (const Case& c : cases) {
    FrameAcquisition input = two, output = two;
    c.change(input.events()[1], output.events()[1]);
    EXPECT_EQ(errorOf(input, output), c.error);
  }
  EXPECT_EQ(errorOf(two, acquisition({inOrder(4)})), mismatch);
  EXPECT_EQ(errorOf(acquisition({}), acquisition({})), "Empty input FrameAcquisition");
  EXPECT_EQ(errorOf(acquisition({{}}), acquisition({{}})),
            "The receive apertures must have at least one element, not 0");
}

TEST_F(MapChannelsErrors, ImagesThatAreNotChannelDataAreRefused) {
  const FrameAcquisition one = acquisition({inOrder(2)});
  const MapChannelsAndTranspose remapper(one, one);
  const struct {
    ImageDescriptor descriptor;
    const char* error;
    ChannelDataLayout layout = {};
  } cases[] = {
      {ImageDescriptor(PixelUInt8, 2, 2), "4 MapChannelsAndTranspose: Unsupported pixel type"},
      {ImageDescriptor(PixelFloat, 2, 2, 1, 3),
       "4 MapChannelsAndTranspose: Only single or dual channel images are supported"},
      {ImageDescriptor(PixelFloat, 2, 2), "must name channels, fast time and slow time once each",
       ChannelDataLayout(Axis::Channels, Axis::Channels, Axis::SlowTime)},
  };
  for (const auto& c : cases) {
    const Tests::ExpectedLog log;
    EXPECT_EQ(remapper.mapAndTranspose(SharedImage(c.descriptor), c.layout), nullptr);
    EXPECT_TRUE(log.contains(c.error)) << c.error;
  }
}

TEST_F(MapChannelsErrors, OfTwoElementsOnOneOutputChannelTheLaterWins) {
  const MapChannelsAndTranspose remapper(acquisition({{2, 0, 1}}), acquisition({{1, 1, 0}}));
  const auto data = Tests::imageOf({PixelFloat, 3, 1}, [](int x, int, int, int) { return 10 + x; });
  const auto result = remapper.mapAndTranspose(SharedImage(data), {});
  EXPECT_EQ(result->mem()->valueAsDouble(0, 0, 0, 0), 11);
  EXPECT_EQ(result->mem()->valueAsDouble(1, 0, 0, 0), 10);
}

} // namespace
} // namespace Kelvaris::US::GPU
