#include "model/PulseEchoEvent.h"

#include "Core/Properties.h"
#include "model/Transducer.h"
#include "model/TransmitTransitTime.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>

namespace Kelvaris::US {
namespace {

using Eigen::Vector3d;
using EventType = PulseEchoEvent::EventType;
using Tests::ExpectedLog;
using Range = std::pair<int, int>;

constexpr double kSpeedOfSound = 1.54e6;                        // mm/s
const Transducer kLinear = Transducer::createLinear(128, 0.25); // exact positions, exact ties
const Transducer kConvex = Transducer::createConvex(128, 0.4, 50.0);

struct Wave {
  const char* name;
  PulseEchoEvent event;
};

/// One of each type and direction on the array, with the speed of sound set.
std::vector<Wave> waves(const Transducer& transducer) {
  const auto elements = transducer.elementPositions();
  const int n = transducer.numElements(), half = n / 2;
  const Vector3d centre = elements[static_cast<std::size_t>(half)], left = elements[static_cast<std::size_t>(n / 4)];
  std::vector<Wave> all = {
      {"focused", PulseEchoEvent::createFocused(transducer, centre, centre + Vector3d(0, 30, 0), half, half)},
      {"steered", PulseEchoEvent::createFocused(transducer, left, left + Vector3d(7, 25, 0), half, half)},
      {"plane", PulseEchoEvent::createPlaneWave(transducer, centre, 0.0, n, n)},
      {"plane to the right", PulseEchoEvent::createPlaneWave(transducer, centre, 0.3, half, n)},
      {"plane to the left", PulseEchoEvent::createPlaneWave(transducer, centre, -0.2, half, n)},
      {"diverging", PulseEchoEvent::createDivergingWave(transducer, centre, centre - Vector3d(0, 10, 0), half, n)},
      {"diverging from aside",
       PulseEchoEvent::createDivergingWave(transducer, left, left - Vector3d(3, 8, 0), half, n)}};
  for (Wave& wave : all)
    wave.event.transmit.speedOfSound = kSpeedOfSound;
  return all;
}

TEST(Aperture, IsTheRunOfNearestElementsWithTiesToLowerIndices) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> x(-25.0, 25.0), y(-5.0, 40.0);
  std::uniform_int_distribution<int> sizes(1, 130), halves(-140, 140);
  for (const Transducer& transducer : {kLinear, kConvex}) {
    const auto elements = transducer.elementPositions();
    const int n = transducer.numElements();
    for (int trial = 0; trial < 500; ++trial) {
      // On the line of the elements, on or halfway between them, there are ties.
      const Vector3d position =
          trial % 2 ? Vector3d(x(random), y(random), 0.0) : Vector3d(0.125 * halves(random), 0, 0);
      const int size = std::min(sizes(random), n);
      std::vector<std::pair<double, int>> byDistance;
      for (int i = 0; i < n; ++i)
        byDistance.emplace_back((elements[static_cast<std::size_t>(i)] - position).norm(), i);
      std::sort(byDistance.begin(), byDistance.end());
      int first = n;
      for (int i = 0; i < size; ++i)
        first = std::min(first, byDistance[static_cast<std::size_t>(i)].second);
      EXPECT_EQ(calculateAperture(transducer, position, size), Range(first, first + size - 1));
    }
  }
  EXPECT_EQ(calculateAperture(kLinear, Vector3d::Zero(), 1000), Range(0, 127));
}

TEST(Aperture, EmptyOrUndefinedIsRefused) {
  const ExpectedLog log;
  const auto zero = Vector3d::Zero();
  EXPECT_FALSE(calculateAperture(kLinear, zero, 0));
  EXPECT_EQ(log.messages(), std::vector<std::string>{"4 PulseEchoEvent: empty aperture requested"});
  EXPECT_THROW(PulseEchoEvent::createPlaneWave(kLinear, zero, 0.0, 0, 64), std::bad_optional_access);
  EXPECT_THROW(PulseEchoEvent::createPlaneWave(kLinear, zero, 0.0, 64, -1), std::bad_optional_access);
  EXPECT_THROW(calculateAperture(kLinear, Vector3d(0, std::nan(""), 0), 4), std::invalid_argument);
  EXPECT_THROW(calculateElementToChannelMapping(0, 3, 0), std::invalid_argument);
}

TEST(PulseEchoEvent, ElementsKeepTheirChannelsWhileTheApertureMoves) {
  EXPECT_EQ(calculateElementToChannelMapping(62, 66, 64), (std::vector<int>{62, 63, 0, 1, 2}));
  const PulseEchoEvent whole = PulseEchoEvent::createPlaneWave(kLinear, Vector3d::Zero(), 0.0, 64, 500);
  EXPECT_EQ(whole.receive.elementToChannelMapping, calculateElementToChannelMapping(0, 127, 128));
}

TEST(PulseEchoEvent, OfElementsThatFireFirstTogetherTheTimeZeroPointIsTheLowest) {
  const auto elements = kLinear.elementPositions();
  EXPECT_EQ(waves(kLinear)[2].event.transmit.timeZeroPoint, elements[0]); // all fire together
  // Behind the centre of an even array both middle elements are equally near.
  const auto middle = PulseEchoEvent::createDivergingWave(kLinear, Vector3d::Zero(), Vector3d(0, -10, 0), 64, 64);
  EXPECT_EQ(middle.transmit.timeZeroPoint, elements[63]);
}

TEST(PulseEchoEvent, DelaysWarnOfHardwareTrouble) {
  const std::string negative =
      "3 PulseEchoEvent: There are negative delays, this might be unsupported by the ultrasound hardware";
  const std::string noZero = "3 PulseEchoEvent: There is no zero delay, this might lead to shift in zero time";
  PulseEchoEvent plane = waves(kLinear)[2].event;
  const auto warnings = [](const PulseEchoEvent& event) {
    const ExpectedLog log;
    event.transmit.calculateDelays(kLinear);
    return log.messages();
  };
  plane.transmit.timeZeroPoint.y() = 1e-14; // a delay of -6.5e-21 s is rounding noise
  EXPECT_TRUE(warnings(plane).empty());
  EXPECT_EQ(plane.transmit.calculateDelays(kLinear)[5], 0.0);
  plane.transmit.timeZeroPoint.y() = 1.0;
  EXPECT_EQ(warnings(plane), std::vector<std::string>{negative});
  plane.transmit.timeZeroPoint.y() = -1.0;
  EXPECT_EQ(warnings(plane), std::vector<std::string>{noZero});
  plane.transmit.eventType = static_cast<EventType>(9);
  EXPECT_EQ(warnings(plane), std::vector<std::string>{noZero});
  plane.transmit.apertureLast = 128;
  EXPECT_THROW(plane.transmit.calculateDelays(kLinear), std::invalid_argument);
}

/// Huygens: the wave is what the elements send out in step. No pulse arrives before the front of a diverging or plane
/// wave or of a wave that still converges; none arrives after the front of a wave that has passed its focus.
TEST(TransmitTransitTime, AgreesWithTheWavesOfTheSingleElements) {
  std::mt19937 random(3);
  for (const Transducer& transducer :
       {Transducer::createLinear(4001, 0.01), Transducer::createConvex(4001, 0.01, 40.0)}) {
    const auto elements = transducer.elementPositions();
    for (const auto& [name, event] : waves(transducer)) {
      const auto& transmit = event.transmit;
      const auto delays = transmit.calculateDelays(transducer);
      EXPECT_EQ(*std::min_element(delays.begin(), delays.end()), 0.0) << name;
      for (int trial = 0; trial < 40; ++trial) {
        // A ray through the wave from one element of the inner aperture, where the front isn't cut off by its edges.
        const int width = transmit.apertureLast - transmit.apertureFirst;
        const int chosen =
            transmit.apertureFirst + std::uniform_int_distribution<int>(width / 4, 3 * width / 4)(random);
        const Vector3d& e = elements[static_cast<std::size_t>(chosen)];
        const double way = std::uniform_real_distribution<double>(2.0, 60.0)(random);
        const bool focused = transmit.eventType == EventType::Focused;
        const Vector3d direction = transmit.eventType == EventType::PlaneWave ? transmit.waveFiducial
                                   : focused ? Vector3d((transmit.waveFiducial - e).normalized())
                                             : Vector3d((e - transmit.waveFiducial).normalized());
        const Vector3d point = e + way * direction;
        const bool passedFocus = focused && way > (transmit.waveFiducial - e).norm();
        double front = passedFocus ? 0.0 : 1.0;
        for (std::size_t i = 0; i < delays.size(); ++i) {
          const auto& element = elements[static_cast<std::size_t>(transmit.apertureFirst) + i];
          const double arrival = delays[i] + (point - element).norm() / kSpeedOfSound;
          front = passedFocus ? std::max(front, arrival) : std::min(front, arrival);
        }
        EXPECT_NEAR(transmitTransitTime(point, event), front, 1e-11) << name << " " << point.transpose();
      }
    }
  }
  PulseEchoEvent unknown;
  unknown.transmit.eventType = static_cast<EventType>(3);
  EXPECT_EQ(transmitTransitTime(Vector3d(1, 2, 3), unknown), 0.0);
}

TEST(PulseEchoEvent, EveryFieldIsStoredAndComparedExactlyButTheStartOfTheWave) {
  const PulseEchoEvent event = waves(kConvex)[0].event; // no field of which is 1
  Properties stored;
  event.configuration(&stored);
  for (const char* part : {"transmit", "receive"})
    for (const auto& [key, text] : stored.findSubProperties(part)->params()) {
      Properties changed = stored;
      changed.subProperties(part).setParam(key, std::regex_replace(text, std::regex("^[^ ]+"), "1"));
      PulseEchoEvent read;
      EXPECT_TRUE(read.read(changed)) << key;
      EXPECT_EQ(read == event, key == "waveStart") << key;
      Properties again;
      read.configuration(&again);
      EXPECT_EQ(again, changed) << key;
    }
}

TEST(PulseEchoEvent, ReadsAllOrNothing) {
  const PulseEchoEvent before = waves(kLinear)[1].event;
  PulseEchoEvent event = before;
  Properties stored;
  stored.subProperties("transmit").setParam("pulseLength", 7.0);
  event.configure(&stored);
  EXPECT_EQ(event, before);
  stored.subProperties("receive").setParam("startTime", "soon");
  const ExpectedLog log;
  EXPECT_FALSE(event.read(stored));
  EXPECT_TRUE(log.contains("\"startTime\""));
  EXPECT_EQ(event, before);
  stored.subProperties("receive").setParam("startTime", 0.5);
  EXPECT_TRUE(event.read(stored));
  EXPECT_EQ(event.transmit.pulseLength, 7.0);
  EXPECT_EQ(event.transmit.speedOfSound, kSpeedOfSound) << "keys that are missing";
}

} // namespace
} // namespace Kelvaris::US
