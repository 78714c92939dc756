#include "simulation/PulseLocations.h"

#include "SimulationCases.h"
#include "simulation/Phantom.h"
#include "simulation/SimulationMemory.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <vector>

namespace Kelvaris::US {
namespace {

using Tests::changed;
using Tests::kCurved;
using Tests::shortFrame;
using Event = PulseEchoEvent;

/// Half of the elements receive, other ones in each event, on channels that go round; fewer transmit.
FrameAcquisition movingApertures() {
  return changed(shortFrame(0, 5, 8), [](Event& event, int e) {
    event.receive.apertureFirst = 4 * e;
    event.receive.apertureLast = 4 * e + 7;
    event.receive.elementToChannelMapping = calculateElementToChannelMapping(4 * e, 4 * e + 7, 8);
  });
}

FrameAcquisition reversedChannels() {
  return changed(shortFrame(2), [](Event& event, int) {
    auto& channels = event.receive.elementToChannelMapping;
    std::iota(channels.rbegin(), channels.rend(), 0);
  });
}

/// The first event has the widest apertures.
FrameAcquisition narrowingApertures() {
  return changed(shortFrame(1), [](Event& event, int e) {
    event.transmit.apertureFirst += 2 * e;
    event.transmit.apertureLast -= e;
    event.receive.apertureLast -= 3 * e;
    event.receive.elementToChannelMapping.resize(static_cast<std::size_t>(16 - 3 * e));
  });
}

const struct Case {
  const char* name;
  FrameAcquisition frame;
  PhantomType phantom;
  Eigen::Vector3d velocity = Eigen::Vector3d::Zero();
} kCases[] = {
    {"focused", shortFrame(0), PhantomType::Point},
    {"plane waves, curved array", shortFrame(1, 16, 16, kCurved), PhantomType::Grid5mm},
    {"diverging waves", shortFrame(2, 7, 16), PhantomType::Point, {300.0, -2000.0, 0.0}},
    {"moving apertures", movingApertures(), PhantomType::Grid5mm, {-4000.0, 0.0, 100.0}},
    {"reversed channels", reversedChannels(), PhantomType::Point},
    {"narrowing apertures", narrowingApertures(), PhantomType::Grid5mm},
    {"no phantom", shortFrame(1), static_cast<PhantomType>(7)},
};

/// The element that an event receives on a channel; -1 if none.
int elementOn(int channel, const Event& event) {
  const auto& channels = event.receive.elementToChannelMapping;
  const auto found = std::find(channels.begin(), channels.end(), channel);
  return found == channels.end() ? -1 : event.receive.apertureFirst + static_cast<int>(found - channels.begin());
}

TEST(PulseLocations, AreThoseOfEveryPathByItself) {
  const Tests::ExpectedLog log; // narrower apertures lack the element that fires at time zero
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    const FrameSizes sizes(c.frame);
    const auto scatterers = phantomScatterers(c.phantom, {0.4, 3.0, 0.1});
    std::vector<Eigen::Vector3d> offsets;
    for (int e = 0; e < sizes.events; ++e)
      offsets.push_back(c.velocity * (1e-4 * e));
    const auto echoes = echoPulseLocations(c.frame, sizes, scatterers, offsets);
    const auto leaks = transmitPulseLocations(c.frame, sizes);
    const auto elements = c.frame.transducer().elementPositions();
    ASSERT_EQ(echoes.size(),
              scatterers.size() * static_cast<std::size_t>(sizes.events * sizes.channels * sizes.transmitElements));
    ASSERT_EQ(leaks.size(), static_cast<std::size_t>(sizes.events * sizes.channels));
    int wrong = 0;
    std::size_t entry = 0, column = 0;
    for (int e = 0; e < sizes.events; ++e) {
      const Event& event = c.frame.events()[static_cast<std::size_t>(e)];
      const double rate = event.receive.samplingFrequency;
      const int first = event.transmit.apertureFirst, last = event.transmit.apertureLast;
      const std::vector<double> delays = event.transmit.calculateDelays(c.frame.transducer());
      const auto delayOf = [&](int element) { return delays[static_cast<std::size_t>(element - first)]; };
      const auto sample = [&](double seconds) { return static_cast<std::int32_t>(seconds * rate); };
      for (int channel = 0; channel < sizes.channels; ++channel, ++column) {
        const int receiver = elementOn(channel, event);
        const bool transmits = receiver >= first && receiver <= last;
        wrong += leaks[column] != (receiver == -1 ? 0 : transmits ? sample(delayOf(receiver)) : -1);
        for (const Eigen::Vector3d& scatterer : scatterers)
          for (int i = 0; i < sizes.transmitElements; ++i, ++entry) {
            std::int32_t expected = 0;
            if (receiver != -1 && first + i <= last) {
              const Eigen::Vector3d p = scatterer + offsets[static_cast<std::size_t>(e)];
              const auto seconds = [&](int element) {
                return (elements[static_cast<std::size_t>(element)] - p).norm() / event.transmit.speedOfSound;
              };
              expected = sample(seconds(first + i) + delayOf(first + i) + seconds(receiver));
            }
            wrong += echoes[entry] != expected;
          }
      }
    }
    EXPECT_EQ(wrong, 0);
  }
}

TEST(PulseLocations, PlacesBeyondAllNumbersAreHarmless) {
  const FrameAcquisition frame = shortFrame(1);
  const FrameSizes sizes(frame);
  const double nan = std::numeric_limits<double>::quiet_NaN(), huge = 1e300;
  const std::vector<Eigen::Vector3d> still(3, Eigen::Vector3d::Zero());
  for (const auto& [place, expected] :
       {std::pair(nan, -1), std::pair(huge, std::numeric_limits<std::int32_t>::max())}) {
    const std::vector<Eigen::Vector3d> scatterers = {{0.0, place, 0.0}};
    for (const std::int32_t location : echoPulseLocations(frame, sizes, scatterers, still))
      ASSERT_EQ(location, expected);
  }
}

TEST(PulseLocations, ChannelsThatTheFrameLacksAreLeftOutWithAWarning) {
  const FrameAcquisition frame = changed(shortFrame(1), [](Event& event, int e) {
    if (e == 1) event.receive.elementToChannelMapping[3] = 99;
    if (e == 2) event.receive.elementToChannelMapping[3] = -2;
  });
  const FrameSizes sizes(frame);
  const Tests::ExpectedLog log;
  reportLostChannels(frame, sizes);
  EXPECT_EQ(log.messages(), std::vector<std::string>{
                                "3 SimulatedChannelDataStream: Event 1 receives element 3 on channel 99; what lies "
                                "outside of the first event's channels, 0 to 15, is left out"});
  EXPECT_EQ(transmitPulseLocations(frame, sizes)[16 + 3], 0) << "a channel that nothing is received on";
}

TEST(FrameSizes, AreThoseOfTheFirstEventAndUsable) {
  const auto sized = [](const std::function<void(Event&)>& change) {
    return FrameSizes(changed(shortFrame(1), [&](Event& event, int) { change(event); }));
  };
  const FrameSizes usual = sized([](Event& event) {
    event.receive.endTime = 100.99 / event.receive.samplingFrequency;
    event.transmit.pulseLength = 2.5; // of 5 samples each
  });
  EXPECT_EQ(usual.samples, 100);
  EXPECT_EQ(usual.pulseLength, 13) << "12.5, rounded away from zero";
  EXPECT_EQ(usual.channels, 16);
  EXPECT_EQ(usual.events, 3);
  for (const auto& [length, samples] : {std::pair(1e300, usual.samples), {-3.0, 0}, {std::nan(""), 0}, {0.09, 0}})
    EXPECT_EQ(sized([&, l = length](Event& event) {
                event.receive.endTime = 100.5 / event.receive.samplingFrequency;
                event.transmit.pulseLength = l;
              }).pulseLength,
              samples)
        << length;

  const struct {
    std::function<void(Event&)> change;
    const char* error;
  } refused[] = {
      {[](Event& e) { e.receive.endTime = 1e-9; },
       "its recordings would have 0 samples (until 1e-09 s at 20000000 Hz)"},
      {[](Event& e) { e.receive.samplingFrequency = std::nan(""); }, "nan samples"},
      {[](Event& e) { e.receive.apertureLast = -1; }, "its receive aperture, element 0 to -1, is empty"},
      {[](Event& e) { e.receive.apertureLast = 16; },
       "its event 0 receives with the elements 0 to 16; those of the array "
       "are 0 to 15"},
      {[](Event& e) { e.receive.apertureFirst = 1 << 30; }, "the elements 1073741824 to 15"},
  };
  for (const auto& [change, error] : refused)
    EXPECT_CONTAINS(Tests::errorOf<std::invalid_argument>([&] { sized(change); }), error);
}

TEST(SimulationMemory, IsCheckedWithinTheLimitsBeforeAnythingIsMade) {
  FrameSizes sizes(shortFrame(1));
  sizes.events = 64;
  sizes.channels = sizes.transmitElements = 64;
  sizes.samples = 1000;
  const SimulationLimits machine = {4'000'000'000, 128 << 20, 16384, 2048};
  // 64 x 64 x 64 x 4 bytes = 1 MiB for each scatterer, so that the 66 of the grid go in two portions.
  EXPECT_EQ(scatterersAtOnce(sizes, machine), 64u);
  EXPECT_EQ(scatterersAtOnce(sizes, {machine.memoryBytes, 10 << 20, 16384, 2048}), 10u);
  EXPECT_NO_THROW(checkMemory({sizes, sizes}, 2, machine));

  const auto refusal = [&](const std::function<void(FrameSizes&, SimulationLimits&)>& change) {
    FrameSizes changedSizes = sizes;
    SimulationLimits limits = machine;
    change(changedSizes, limits);
    return Tests::errorOf<std::length_error>([&] { checkMemory({sizes, changedSizes}, 2, limits); });
  };
  // 2 frames x 4.1e6 pixels x 30 bytes and 2 x 64 MiB.
  EXPECT_EQ(
      refusal([](FrameSizes&, SimulationLimits& limits) { limits.memoryBytes = 300'000'000; }),
      "The AcquisitionSequence takes 0.38 GB to simulate, 0.246 GB of it for images and 0.134 GB for location tables "
      "(events x channels x transmit elements x scatterers); 0.3 GB are available. Fewer events and repetitions, "
      "smaller apertures, a shorter recording or a lower sampling frequency would make it smaller");
  EXPECT_CONTAINS(
      refusal([](FrameSizes& s, SimulationLimits&) { s.events = 2049; }),
      "FrameAcquisition 1 would give an image of 64 channels, 1000 samples and 2049 events; OpenGL's largest "
      "here has 16384, 16384 and 2048");
  EXPECT_CONTAINS(
      refusal([](FrameSizes& s, SimulationLimits&) { s.channels = s.transmitElements = 16384; }),
      "64 events x 16384 channels x 16384 transmit elements x 4 bytes = 68.7 GB for each scatterer, is larger "
      "than what a shader can read here, 0.134 GB");
  EXPECT_GT(availableMemory(), 1u << 20);
}

} // namespace
} // namespace Kelvaris::US
