#include "gpu/MapChannelsAndTranspose.h"

#include "support/DeviceTest.h"
#include "support/ExpectedLog.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <stdexcept>

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
  const Shape shapes[] = {{5, 70, 3, 5}, {37, 41, 19, 33}, {33, 64, 2, 70}, {1, 1, 1, 1}, {700, 3, 2, 700}};
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
    const std::shared_ptr<MemImage> data = MemImage::create(descriptor);
    dispatchPixelType(pixelType, [&]<typename T>() {
      std::generate_n(static_cast<T*>(data->data()), descriptor.elementCount(),
                      [&] { return static_cast<T>(1 + random() % 30000); });
    });
    const auto result = remapper.mapAndTranspose(SharedImage(data), layout);
    ASSERT_TRUE(result);
    const ImageDescriptor& d = result->descriptor();
    EXPECT_EQ(d.dimensions(), Eigen::Vector3i(shape.channels, shape.samples, shape.events));
    EXPECT_EQ(d.spacing(), descriptor.spacing()) << "the spacing is the input's as it stands";
    EXPECT_EQ(result->mask(), nullptr);

    int wrong = 0;
    const auto output = result->mem();
    for (int v = 0; v < shape.events; ++v) {
      std::vector<int> source(static_cast<std::size_t>(shape.channels), -1);
      for (std::size_t k = 0; k < from[static_cast<std::size_t>(v)].size(); ++k)
        if (const int target = to[static_cast<std::size_t>(v)][k]; target < shape.channels)
          source[static_cast<std::size_t>(target)] = from[static_cast<std::size_t>(v)][k];
      for (int c = 0; c < shape.channels; ++c)
        for (int s = 0; s < shape.samples; ++s)
          for (int i = 0; i < components; ++i) {
            const int m = source[static_cast<std::size_t>(c)];
            const Eigen::Vector3i p = layout.packVec(m, s, v);
            const double expected = m < 0 || m >= shape.channels ? 0.0 : data->valueAsDouble(p.x(), p.y(), p.z(), i);
            wrong += output->valueAsDouble(c, s, v, i) != expected;
          }
    }
    EXPECT_EQ(wrong, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Types, MapChannels,
                         ::testing::Combine(::testing::Values(PixelInt16, PixelFloat), ::testing::Values(1, 2),
                                            ::testing::Range(0, 6)));

class MapChannelsLarge : public Tests::DeviceTest<> {};

TEST_F(MapChannelsLarge, OutputsThatNoCacheHolds) { // on the CPU they are written past the caches
  constexpr int channels = 136, samples = 1027, events = 64;
  std::mt19937 random(1);
  std::vector<std::vector<int>> from(events, inOrder(channels));
  for (std::vector<int>& mapping : from)
    std::shuffle(mapping.begin(), mapping.end(), random);
  const MapChannelsAndTranspose remapper(acquisition(from), acquisition({events, inOrder(channels)}));
  for (const ChannelDataLayout& layout : {ChannelDataLayout(Axis::Channels, Axis::SlowTime, Axis::FastTime),
                                          ChannelDataLayout(Axis::SlowTime, Axis::FastTime, Axis::Channels)}) {
    const Eigen::Vector3i extent = layout.packVec(channels, samples, events);
    const auto data = std::make_shared<TypedImage<short>>(extent.x(), extent.y(), extent.z());
    std::generate_n(data->pointer(), data->size(), [&] { return static_cast<short>(random()); });
    const auto result = remapper.mapAndTranspose(SharedImage(data), layout)->mem();
    const auto* output = static_cast<const short*>(result->data());
    std::ptrdiff_t wrong = 0;
    for (int v = 0; v < events; ++v)
      for (int s = 0; s < samples; ++s)
        for (const int m : from[static_cast<std::size_t>(v)]) {
          const Eigen::Vector3i p = layout.packVec(m, s, v);
          wrong += *output++ != data->pointer()[(p.z() * extent.y() + p.y()) * extent.x() + p.x()];
        }
    EXPECT_EQ(wrong, 0);
  }
}

class MapChannelsErrors : public Tests::DeviceTest<> {};

TEST_F(MapChannelsErrors, AcquisitionsThatDoNotFitAreRefused) {
  constexpr const char* mismatch = "Input and output FrameAcquisition do not match";
  struct Case {
    const char* what;
    std::function<void(std::vector<PulseEchoEvent>& input, std::vector<PulseEchoEvent>& output)> change;
    const char* error;
  };
  using Events = std::vector<PulseEchoEvent>;
  const Case cases[] = {
      {"event count", [](Events& in, Events&) { in.pop_back(); }, mismatch},
      {"no events", [](Events& in, Events& out) { in.clear(), out.clear(); }, "Empty input FrameAcquisition"},
      {"transmit", [](Events& in, Events&) { in[1].transmit.pulseFrequency = 1; }, mismatch},
      {"aperture", [](Events& in, Events&) { in[1].receive.apertureFirst = 1; }, mismatch},
      {"sampling frequency", [](Events& in, Events&) { in[0].receive.samplingFrequency += 1; }, mismatch},
      {"times that are no numbers",
       [](Events& in, Events& out) { in[0].receive.startTime = out[0].receive.startTime = kNan; }, mismatch},
      {"unequal apertures",
       [](Events& in, Events& out) { in[1].receive.apertureLast = out[1].receive.apertureLast = 2; },
       "Inconsistent receive channels across output FrameAcquisition"},
      {"a mismatch before unequal apertures",
       [](Events& in, Events& out) {
         in[1].receive.apertureLast = out[1].receive.apertureLast = 2, in[1].receive.endTime = 1;
       },
       mismatch},
      {"no aperture",
       [](Events& in, Events& out) {
         for (Events* events : {&in, &out})
           for (PulseEchoEvent& event : *events)
             event.receive.apertureLast = -1;
       },
       "The receive apertures must have at least one element, not 0"},
      {"short mapping", [](Events& in, Events&) { in[1].receive.elementToChannelMapping.pop_back(); },
       "Event 1 of the input FrameAcquisition receives on 4 elements (0 to 3), but maps only 3 of them to channels"},
      {"negative channel", [](Events& in, Events&) { in[1].receive.elementToChannelMapping[2] = -7; },
       "Event 1 of the input FrameAcquisition maps element 2 to channel -7; channels count from 0"},
      {"output channel", [](Events&, Events& out) { out[0].receive.elementToChannelMapping[3] = 4; },
       "Event 0 of the output FrameAcquisition maps element 3 to channel 4, but its aperture has the channels 0 to 3"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    FrameAcquisition input = acquisition({inOrder(4), inOrder(4)}), output = input;
    c.change(input.events(), output.events());
    try {
      const MapChannelsAndTranspose remapper(input, output);
      ADD_FAILURE() << "accepted";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), c.error);
    }
  }
}

TEST_F(MapChannelsErrors, ImagesThatAreNotChannelDataAreRefused) {
  const FrameAcquisition one = acquisition({inOrder(2)});
  const MapChannelsAndTranspose remapper(one, one);
  struct Case {
    ImageDescriptor descriptor;
    ChannelDataLayout layout;
    const char* error;
  };
  const Case cases[] = {
      {ImageDescriptor(PixelUInt8, 2, 2), {}, "4 MapChannelsAndTranspose: Unsupported pixel type"},
      {ImageDescriptor(PixelHalf, 2, 2, 1, 3), {}, "4 MapChannelsAndTranspose: Unsupported pixel type"},
      {ImageDescriptor(PixelFloat, 2, 2, 1, 3),
       {},
       "4 MapChannelsAndTranspose: Only single or dual channel images are supported"},
      {ImageDescriptor(PixelFloat, 2, 2), ChannelDataLayout(Axis::Channels, Axis::Channels, Axis::SlowTime),
       "4 MapChannelsAndTranspose: The layout of the channel data must name channels, fast time and slow time once "
       "each"},
  };
  for (const Case& c : cases) {
    const Tests::ExpectedLog log;
    const SharedImage image(std::shared_ptr<Image>(MemImage::create(c.descriptor)));
    EXPECT_EQ(remapper.mapAndTranspose(image, c.layout), nullptr);
    EXPECT_EQ(log.messages(), std::vector<std::string>{c.error});
  }
}

TEST_F(MapChannelsErrors, OfTwoElementsOnOneOutputChannelTheLaterWins) {
  const MapChannelsAndTranspose remapper(acquisition({{2, 0, 1}}), acquisition({{1, 1, 0}}));
  auto data = std::make_shared<TypedImage<float>>(3, 1);
  std::iota(data->pointer(), data->pointer() + 3, 10.0f);
  const auto result = remapper.mapAndTranspose(SharedImage(data), {});
  EXPECT_EQ(result->mem()->valueAsDouble(0, 0, 0, 0), 11);
  EXPECT_EQ(result->mem()->valueAsDouble(1, 0, 0, 0), 10);
}

} // namespace
} // namespace Kelvaris::US::GPU
