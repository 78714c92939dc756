#include "kelvaris/AcquisitionDesign.h"

#include "kelvaris/AcquisitionSummary.h"
#include "kelvaris/NumberList.h"

#include "US/FrameGeometryMetadata.h"
#include "model/FrameAcquisition.h"
#include "support/ErrorOf.h"

#include <cmath>
#include <numbers>

namespace Kelvaris::CommandLine {
namespace {

using Tests::errorOf;
using US::PulseEchoEvent;
using US::Transducer;

AcquisitionDesign design(Wave wave, int elements = 64) {
  AcquisitionDesign d;
  d.wave = wave;
  d.numElements = elements;
  d.pitch = 0.3;
  d.pulseFrequency = 5e6;
  d.samplingFrequency = 2e7;
  d.endDepth = 40.0;
  d.samples = 1000;
  return d;
}

std::vector<PulseEchoEvent> eventsOf(const AcquisitionDesign& d) {
  std::vector<PulseEchoEvent> events;
  const Properties properties = d.toProperties();
  for (const Properties* stored : properties.allSubProperties("events"))
    EXPECT_TRUE(events.emplace_back().read(*stored));
  return events;
}

US::FrameAcquisition modelOf(const AcquisitionDesign& d) {
  const Properties properties = d.toProperties();
  US::FrameAcquisition model;
  model.configure(&properties);
  return model;
}

/// All of the events but their times.
void expectSameWaves(const std::vector<PulseEchoEvent>& actual, const std::vector<PulseEchoEvent>& expected,
                     double tolerance = 1e-12) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    const auto &a = actual[i].transmit, &b = expected[i].transmit;
    EXPECT_EQ(std::tuple(a.eventType, a.apertureFirst, a.apertureLast),
              std::tuple(b.eventType, b.apertureFirst, b.apertureLast));
    EXPECT_EQ(actual[i].receive.apertureFirst, expected[i].receive.apertureFirst);
    EXPECT_EQ(actual[i].receive.elementToChannelMapping, expected[i].receive.elementToChannelMapping);
    EXPECT_LT((a.timeZeroPoint - b.timeZeroPoint).norm(), 1e-12);
    EXPECT_LT((a.waveFiducial - b.waveFiducial).norm(), tolerance);
    EXPECT_LT((a.waveStart - b.waveStart).norm(), tolerance);
  }
}

TEST(AcquisitionDesign, ListsTheEventsThatTheModelMakes) {
  constexpr double radius = 40.0;
  const Transducer array = Transducer::createConvex(64, 0.3, radius);
  AcquisitionDesign d = design(Wave::Plane);
  d.radius = radius;
  d.receiveAperture = 33;
  d.transmitAperture = 20;
  d.angles = {-0.2, 0.0, 0.1};
  d.origins = {-8.0, 0.0, 5.0};
  std::vector<PulseEchoEvent> planes, singles;
  for (const double s : d.origins)
    for (const double angle : d.angles) {
      const Eigen::Vector3d origin(radius * std::sin(s / radius), radius * std::cos(s / radius) - radius, 0.0);
      planes.push_back(PulseEchoEvent::createPlaneWave(array, origin, angle, 20, 33));
    }
  const auto events = eventsOf(d);
  expectSameWaves(events, planes);
  EXPECT_EQ(events[1].transmit.pulseFrequency, 5e6);
  EXPECT_DOUBLE_EQ(events[1].receive.endTime - events[1].receive.startTime, 1000 / 2e7);

  d = design(Wave::SingleElement);
  d.radius = radius;
  d.receiveAperture = 33;
  d.firing = {0, 17, 63};
  for (const int i : d.firing) {
    const Eigen::Vector3d element = array.elementPositions()[static_cast<std::size_t>(i)];
    singles.push_back(PulseEchoEvent::createDivergingWave(array, element, element, 1, 33));
  }
  expectSameWaves(eventsOf(d), singles);
}

TEST(AcquisitionDesign, StoresParametersOnlyWhereTheyMakeTheSameEvents) {
  const double degree = std::numbers::pi / 180.0;
  AcquisitionDesign plane = design(Wave::Plane), diverging = design(Wave::Diverging), focused = design(Wave::Focused);
  plane.angles = {-10 * degree, 0.0, 10 * degree};
  AcquisitionDesign sliding = design(Wave::Plane);
  sliding.apertures = 4;
  sliding.transmitAperture = 16;
  diverging.angles = {-20 * degree, 20 * degree};
  diverging.distance = 15.0;
  focused.beams = 5;
  focused.distance = 25.0;
  focused.angles = {5 * degree};
  focused.transmitAperture = 32;
  for (AcquisitionDesign d : {plane, sliding, diverging, focused})
    for (const bool convex : {false, true}) {
      if (convex) d.radius = 50.0;
      if (d.wave != Wave::Focused && convex) d.apertures = d.apertures.value_or(1);
      d.samples = 1000; // keeps the events explicit
      const auto expected = eventsOf(d);
      d.samples.reset();
      ASSERT_TRUE(d.toProperties().hasParam("eventType"));
      const US::FrameAcquisition model = modelOf(d);
      // The model samples a curve through the elements, which follows the arc to 1e-5 mm.
      expectSameWaves(model.events(), expected, convex && d.wave == Wave::Focused ? 2e-5 : 1e-12);
      EXPECT_NE(model.frameGeometry().frameGeometry(), nullptr);
    }

  plane.samples.reset();
  AcquisitionDesign uneven = plane, late = plane, small = plane, single = diverging;
  uneven.angles = {-0.1, 0.0, 0.2};
  late.startTime = 1e-6;
  small.transmitAperture = small.receiveAperture = 16;
  single.angles = {0.0};
  single.samples.reset();
  for (const AcquisitionDesign& d : {uneven, late, small, single})
    EXPECT_FALSE(d.toProperties().hasParam("eventType"));
}

TEST(AcquisitionDesign, SectorsOfLimitedBeamsHaveThemAsColumns) {
  constexpr double degree = std::numbers::pi / 180.0;
  AcquisitionDesign d = design(Wave::Focused);
  d.distance = 25.0;
  d.startDepth = 5.0;
  d.angles.clear();
  for (int i = -36; i <= 36; ++i)
    d.angles.push_back(i * degree);
  const US::FrameAcquisition acquisition = modelOf(d);
  const US::FrameGeometry& geometry = *acquisition.frameGeometry().frameGeometry();
  EXPECT_EQ(geometry.depth(), 40.0);
  ASSERT_EQ(acquisition.rois()->size(), 73);
  for (int i = 0; i < 73; ++i) {
    const auto& line = acquisition.rois()->roi(i).points();
    ASSERT_EQ(line.size(), 2u);
    EXPECT_NEAR(line[0].norm(), 5.0, 1e-12);
    EXPECT_NEAR(line[1].norm(), 40.0, 1e-12);
    const Eigen::Vector2d pixel =
        geometry.convertPoint({(i + 0.5) / 73.0, 0.5}, US::FrameGeometry::NormalizedToPhysical);
    EXPECT_NEAR(std::atan2(pixel.x(), pixel.y()), (i - 36) * degree, 1e-9);
  }
}

TEST(AcquisitionDesign, SectorsOfUnfocusedWavesBeginAtTheirStartDepthAndNotBehindTheArray) {
  constexpr double apex = 20.0, start = 10.0;
  AcquisitionDesign d = design(Wave::Plane);
  d.sector = 1.2;
  d.apex = apex;
  d.startDepth = start;
  const US::FrameAcquisition acquisition = modelOf(d);
  const US::FrameGeometry& geometry = *acquisition.frameGeometry().frameGeometry();
  ASSERT_EQ(acquisition.rois()->size(), 1);
  for (double u = 0.005; u < 1.0; u += 0.01)
    for (double depth = 0.05; depth < 40.0; depth += 0.1) {
      const double angle = (2.0 * u - 1.0) * 1.2;
      const Eigen::Vector2d point((apex + depth) * std::sin(angle), (apex + depth) * std::cos(angle) - apex);
      const auto pixel = geometry.convertPoint({u, depth / 40.0}, US::FrameGeometry::NormalizedToPhysical);
      EXPECT_LT((pixel - point).norm(), 1e-9);
      EXPECT_EQ(acquisition.rois()->roi(0).includesPoint(point), depth >= start && point.y() >= 0.0)
          << point.transpose();
    }
}

TEST(AcquisitionDesign, TurnsTheRecordingsClockIntoThatOfTheFirstFiring) {
  AcquisitionDesign d = design(Wave::Plane);
  d.angles = {0.0, 0.2, -0.2};
  d.startTime = 4e-6;
  d.pulseDelay = 0.7e-6;
  EXPECT_NEAR(eventsOf(d)[1].receive.startTime, 3.3e-6, 1e-15);

  // A recording whose clock starts as the wave passes the array's centre began later than one whose clock starts with
  // the first firing, by the way from the first element to the centre.
  d.timeZero = TimeZero::Origin;
  const double way = 63 * 0.15 * std::sin(0.2) / 1.54e6;
  for (std::size_t i = 0; i < 3; ++i)
    EXPECT_NEAR(eventsOf(d)[i].receive.startTime, 3.3e-6 + (i == 0 ? 0.0 : way), 1e-15);

  // Without a number of samples the recording lasts until the echo from the far corner has crossed the array.
  d = design(Wave::SingleElement);
  d.samples.reset();
  EXPECT_NEAR(eventsOf(d)[1].receive.endTime, 2.0 * std::hypot(63 * 0.3, 40.0) / 1.54e6, 1e-12);
}

TEST(AcquisitionDesign, NumbersChannelsAsAsked) {
  AcquisitionDesign d = design(Wave::Plane, 16);
  d.receiveAperture = 4;
  d.origins = {1.35}; // between elements 8 and 9 of 16
  for (const auto& [order, channels] : {std::pair(ChannelOrder::Wrapped, std::vector{2, 3, 0, 1}),
                                        {ChannelOrder::Element, {10, 11, 12, 13}},
                                        {ChannelOrder::Aperture, {0, 1, 2, 3}}}) {
    d.channelOrder = order;
    EXPECT_EQ(eventsOf(d).at(0).receive.elementToChannelMapping, channels);
  }
}

TEST(AcquisitionDesign, RefusesNonsenseInWords) {
  static const std::vector<Eigen::Vector2d> unevenFoci = {{0.0, 20.0}, {3.0, 20.0}, {4.0, 20.0}};
  const struct {
    Wave wave;
    void (*change)(AcquisitionDesign&);
    const char* part;
  } cases[] = {
      {Wave::Plane, [](AcquisitionDesign& d) { d.radius = 1.0; }, "more than a half circle"},
      {Wave::Plane, [](AcquisitionDesign& d) { d.pulseFrequency = 0.0; }, "pulse frequency is 0 MHz"},
      {Wave::Plane, [](AcquisitionDesign& d) { d.distance = 20.0; }, "neither a focus nor a virtual source"},
      {Wave::Plane, [](AcquisitionDesign& d) { d.receiveAperture = 65; }, "65 elements, it must have 1 to"},
      {Wave::Plane, [](AcquisitionDesign& d) { d.origins = {20.0}; }, "reaches from -9.45"},
      {Wave::Plane, [](AcquisitionDesign& d) { d.startDepth = 40.0; }, "from 40 to 40 mm"},
      {Wave::Plane, [](AcquisitionDesign& d) { d.sector = 2.0; }, "above 0 and below 90"},
      {Wave::Plane, [](AcquisitionDesign& d) { d.angles.back() = -1.6; }, "must lie between -90 and 90"},
      {Wave::Plane, [](AcquisitionDesign& d) { d.radius = 40.0, d.sector = 0.5; }, "a convex array follows"},
      {Wave::Plane, [](AcquisitionDesign& d) { d.apertures = 4, d.beams = 4; }, "only one of them"},
      {Wave::Diverging, [](AcquisitionDesign&) {}, "either the distance of the virtual source or its positions"},
      {Wave::Diverging, [](AcquisitionDesign& d) { d.points.emplace_back(0.0, 5.0); }, "must lie behind the array"},
      {Wave::Focused, [](AcquisitionDesign& d) { d.points = unevenFoci; }, "its columns"},
      {Wave::SingleElement, [](AcquisitionDesign& d) { d.firing = {64}; }, "Element 64 fires"},
  };
  for (const auto& c : cases) {
    AcquisitionDesign d = design(c.wave);
    c.change(d);
    EXPECT_CONTAINS(errorOf<std::invalid_argument>([&] { d.toProperties(); }), c.part);
  }
}

TEST(AcquisitionSummary, FindsWhatDoesNotFitTheArray) {
  AcquisitionDesign d = design(Wave::Plane, 16);
  d.angles = {-0.1, 0.1};
  const Properties good = d.toProperties();
  const AcquisitionSummary summary = summarizeAcquisition(good);
  EXPECT_EQ(summary.numChannels, 16);
  EXPECT_EQ(summary.samples, 1000);
  d.samples.reset();
  EXPECT_EQ(summarizeAcquisition(d.toProperties()).numEvents, 2) << "stored as parameters";
  EXPECT_CONTAINS(errorOf<std::invalid_argument>([] { summarizeAcquisition({}); }), "no \"transducer\"");

  const struct {
    const char *part, *key, *text, *message;
  } cases[] = {
      {"transducer", "numberElements", "12", "reaches from element 0 to 15, but the array has the elements 0 to 11"},
      {"transducer", "pitch", "nan", "\"pitch\" of the transducer is nan"},
      {"receive", "elementToChannelMapping", "1 2 3", "maps 3 elements"},
      {"receive", "endTime", "-1", "ends at -1 s"},
      {"transmit", "waveFiducial", "0 nan 0", "\"waveFiducial\""},
  };
  for (const auto& c : cases) {
    Properties changed = good;
    Properties& owner = c.part == std::string("transducer") ? changed : changed.subProperties("events");
    owner.subProperties(c.part).setParam(c.key, c.text);
    EXPECT_CONTAINS(errorOf<std::invalid_argument>([&] { summarizeAcquisition(changed); }), c.message);
  }
}

TEST(NumberList, ReadsListsAndRanges) {
  EXPECT_EQ(parseNumbers("0:0.1:0.3").size(), 4u);
  EXPECT_EQ(parseWholeNumbers("3,5:7"), (std::vector<int>{3, 5, 6, 7}));
  EXPECT_EQ(parseNumbers("5:-2:0"), (std::vector<double>{5, 3, 1}));
  EXPECT_EQ(parseInterval("-12.5:12.5"), (std::pair{-12.5, 12.5}));
  for (const char* text : {"", "1,,2", "1:2:3:4", "0:-1:5", "0:0:1", "nan", "1e999", "0:1e-9:1", "x"})
    EXPECT_THROW(parseNumbers(text), std::invalid_argument) << text;
  EXPECT_THROW(parseWholeNumbers("1.5"), std::invalid_argument);
  EXPECT_THROW(parseInterval("5"), std::invalid_argument);
  EXPECT_THROW(parsePoints("1;2"), std::invalid_argument);
}

} // namespace
} // namespace Kelvaris::CommandLine
