#include "model/AcquisitionSequence.h"

#include "Core/Properties.h"
#include "model/FrameCases.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

namespace Kelvaris::US {
namespace {

using namespace Tests;

using Delays = std::vector<std::optional<double>>;
using Mode = AcquisitionSequence::EnsembleMode;
using Order = std::vector<AcquisitionSequence::EventIndex>;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
const Transducer kArray = Transducer::createLinear(8, 0.3);

/// Events that differ in their pulse frequencies: `first`, `first` + 1, ...
std::vector<PulseEchoEvent> numberedEvents(int count, double first = 0.0) {
  std::vector<PulseEchoEvent> events(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i)
    events[static_cast<std::size_t>(i)].transmit.pulseFrequency = first + i;
  return events;
}

/// A frame of each of the sizes; the events of frame f are numbered from 10 f.
std::vector<FrameAcquisition> frames(std::initializer_list<int> sizes) {
  std::vector<FrameAcquisition> result;
  for (const int size : sizes)
    result.emplace_back(kArray, numberedEvents(size, 10.0 * static_cast<double>(result.size())));
  return result;
}

std::vector<double> numbers(const std::vector<PulseEchoEvent>& events) {
  std::vector<double> result;
  for (const PulseEchoEvent& event : events)
    result.push_back(event.transmit.pulseFrequency);
  return result;
}

Order order(const std::vector<std::pair<int, int>>& entries) {
  Order result;
  for (const auto& [frame, event] : entries)
    result.push_back({frame, event});
  return result;
}

TEST(AcquisitionSequence, FiresFramesInTheOrderOfTheirEnsembles) {
  const struct {
    std::vector<FrameAcquisition> frames;
    std::vector<int> sizes;
    std::vector<Mode> modes;
    Delays delays;
    std::vector<std::pair<int, int>> order;
    Delays delayOfFiring;
  } cases[] = {
      {frames({3}), {2}, {Mode::PerEvent}, {0.0}, {{0, 0}, {0, 0}, {0, 1}, {0, 1}, {0, 2}, {0, 2}}, Delays(6, 0.0)},
      {frames({3}), {2}, {Mode::PerFrame}, {{}}, {{0, 0}, {0, 1}, {0, 2}, {0, 0}, {0, 1}, {0, 2}}, Delays(6)},
      {frames({1, 2}),
       {1, 3},
       {Mode::PerFrame, Mode::PerEvent},
       {{}, 2e-4},
       {{0, 0}, {1, 0}, {1, 0}, {1, 0}, {1, 1}, {1, 1}, {1, 1}},
       {{}, 2e-4, 2e-4, 2e-4, 2e-4, 2e-4, 2e-4}}};
  for (const auto& c : cases) {
    const AcquisitionSequence sequence(c.frames, c.sizes, c.modes, c.delays);
    EXPECT_EQ(sequence.eventOrder(), order(c.order));
    EXPECT_EQ(sequence.interEventDelays(), c.delayOfFiring);
    EXPECT_EQ(sequence.numEvents(), static_cast<int>(c.order.size()));
  }

  const AcquisitionSequence once(frames({2, 1}));
  EXPECT_EQ(once.eventOrder(), order({{0, 0}, {0, 1}, {1, 0}}));
  EXPECT_EQ(once.interEventDelays(), Delays(3));
}

TEST(AcquisitionSequence, SortsInterleavedEventsIntoTheirFrames) {
  const AcquisitionSequence sequence(kArray, numberedEvents(3), {1, 0, 1}, {0.0, {}, 1e-3});
  EXPECT_EQ(sequence.eventOrder(), order({{1, 0}, {0, 0}, {1, 1}}));
  EXPECT_EQ(sequence.interEventDelays(), (Delays{0.0, {}, 1e-3}));
  EXPECT_EQ(numbers(sequence.frameAcquisitions()[0].events()), (std::vector{1.0}));
  EXPECT_EQ(numbers(sequence.eventsInExecutionOrder()), (std::vector{0.0, 1.0, 2.0}));
  EXPECT_EQ(numbers(sequence.frameAcquisitionEventsInExecutionOrder(1)), (std::vector{0.0, 2.0}));
  EXPECT_TRUE(AcquisitionSequence().eventsInExecutionOrder().empty());
  for (const int index : {-1, 2}) {
    EXPECT_EQ(errorOf<std::out_of_range>([&] { sequence.frameAcquisitionEventsInExecutionOrder(index); }),
              "AcquisitionSequence: Frame index out of range.");
    EXPECT_EQ(errorOf<std::out_of_range>([&] { sequence.effectiveFrameAcquisition(index); }),
              "AcquisitionSequence: Acquisition index out of range.");
  }
}

TEST(AcquisitionSequence, RefusesInTheStatedOrder) {
  const auto other = [] { // the second frame on another array
    std::vector<FrameAcquisition> result = frames({1, 1});
    result[1].transducer().configureLinear(8, 0.31);
    return result;
  };
  using Make = std::function<void()>;
  const auto ensembles = [](std::initializer_list<int> of, std::vector<int> sizes, const std::vector<int>& modes,
                            Delays delays) -> Make {
    std::vector<Mode> enumerators;
    for (const int mode : modes)
      enumerators.push_back(static_cast<Mode>(mode));
    return [=, made = frames(of)] { AcquisitionSequence(made, sizes, enumerators, delays); };
  };
  const auto mapped = [](std::vector<int> mapping, int numEvents, std::size_t numDelays) -> Make {
    return [=] { AcquisitionSequence(kArray, numberedEvents(numEvents), mapping, Delays(numDelays)); };
  };
  const auto ordered = [](std::vector<FrameAcquisition> of, const std::vector<std::pair<int, int>>& entries,
                          Delays delays) -> Make { return [=] { AcquisitionSequence(of, order(entries), delays); }; };
  const char* const perFrame =
      "The sizes of ensembleSizes, ensembleModes and interEventDelays must match the number of FrameAcquisitions.";
  const char* const perEvent = "The sizes of eventToFrameMapping and interEventDelays must match the number of events.";
  const char* const perFiring = "The size of interEventDelays must match the size of eventOrder.";
  const char* const coverage =
      "Event order does not cover all events in the FrameAcquisitions the same number of times.";
  const char* const wrongFrame = "Invalid event index in event order.";
  const char* const wrongEvent = "Invalid event index in event order during coverage check.";
  const char* const oneArray = "All FrameAcquisitions must use the same Transducer.";
  const char* const negativeDelay = "Inter event delays must be non-negative if specified.";
  const struct {
    Make make;
    const char* message; // empty: taken
  } cases[] = {{[] { AcquisitionSequence(std::vector<FrameAcquisition>()); },
                "The list of FrameAcquisitions must not be empty."},
               {[] { AcquisitionSequence(frames({0})); }, "The event order must not be empty."},
               {ensembles({1}, {0, 0}, {0}, Delays(1)), perFrame},
               {ensembles({1}, {0}, {2}, Delays(1)), "Ensemble sizes must be at least 1."},
               {ensembles({1, 1}, {1, 0}, {2, 0}, Delays(2)), "Unknown EnsembleMode."},
               {ensembles({1}, {1}, {0}, {-1e-9}), negativeDelay},
               {mapped({0}, 0, 0), "The list of events must not be empty."},
               {mapped({-1}, 2, 2), perEvent},
               {mapped({0, -1}, 2, 2), "Frame indices in eventToFrameMapping must be non-negative."},
               {mapped({0, 2}, 2, 2), wrongFrame},
               {ordered(other(), {}, {1.0}), "The event order must not be empty."},
               {ordered(other(), {{2, 0}}, {}), perFiring},
               {ordered(other(), {{0, 7}, {2, 0}}, Delays(2)), wrongFrame},
               {ordered(other(), {{0, 7}, {1, 0}}, Delays(2)), oneArray},
               {ordered(frames({2}), {{0, 0}, {0, 2}}, Delays(2)), wrongEvent},
               {ordered(frames({2}), {{0, 0}, {0, 0}, {0, 1}}, {{}, {}, -1.0}), coverage},
               {ordered(frames({2}), {{0, 1}, {0, 0}}, {0.0, -1e-9}), negativeDelay},
               {ordered(frames({2, 1}), {{0, 1}, {1, 0}, {0, 0}, {1, 0}, {1, 0}}, {0.0, {}, 1.0, {}, {}}), ""}};
  for (const auto& c : cases)
    EXPECT_EQ(errorOf<std::invalid_argument>(c.make),
              *c.message ? std::string("AcquisitionSequence: ") + c.message : "");
}

TEST(AcquisitionSequence, EffectiveFrameHasAnEventAndARegionPerFiring) {
  const FrameAcquisition made(kArray, changed(0, [](auto& p) { p.focused.numberFocusedBeamsTotal = 3; }));
  const AcquisitionSequence sequence({made, FrameAcquisition(kArray, numberedEvents(1))}, {2, 1},
                                     {Mode::PerEvent, Mode::PerEvent}, Delays(2));
  const FrameAcquisition effective = sequence.effectiveFrameAcquisition(0);
  ASSERT_EQ(effective.events().size(), 6u);
  ASSERT_EQ(effective.rois()->size(), 6);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(effective.events()[static_cast<std::size_t>(i)], made.events()[static_cast<std::size_t>(i / 2)]);
    EXPECT_TRUE(effective.rois()->roi(i).isEquivalent(made.rois()->roi(i / 2)));
  }
  EXPECT_EQ(sequence.effectiveFrameAcquisition(1).rois(), nullptr);
}

TEST(AcquisitionSequence, ComparesFramesOrderAndDelays) {
  const auto make = [](double second, Delays delays) {
    std::vector<FrameAcquisition> of = frames({2});
    of[0].events()[1].transmit.pulseFrequency = second;
    return AcquisitionSequence(of, order({{0, 0}, {0, 1}}), std::move(delays));
  };
  const AcquisitionSequence sequence = make(1.0, {{}, 0.0});
  EXPECT_EQ(sequence, make(1.0, {{}, 0.0}));
  EXPECT_NE(sequence, make(2.0, {{}, 0.0}));
  EXPECT_NE(sequence, make(1.0, {{}, {}}));
  EXPECT_NE(sequence, make(1.0, {{}, 1.0}));
  EXPECT_NE(sequence, AcquisitionSequence(frames({2}), order({{0, 1}, {0, 0}}), {{}, 0.0}));
  EXPECT_NE(make(1.0, {{}, kNan}), make(1.0, {{}, kNan}));
}

Properties stored(const AcquisitionSequence& sequence) {
  Properties properties;
  sequence.configuration(&properties);
  return properties;
}

TEST(AcquisitionSequence, StoresAndReadsBack) {
  const auto twoWaves = changed(1, [](auto& p) {
    p.maxTransmitAperture = p.maxReceiveAperture = 4;
    p.planeWave = {.planeAngleRange = 0.2, .numberApertures = 1, .numberEventsPerAperture = 2};
  });
  const AcquisitionSequence original({FrameAcquisition(kArray, twoWaves), FrameAcquisition(kArray, numberedEvents(1))},
                                     order({{0, 1}, {1, 0}, {0, 0}}), {1e-4, {}, 0.0});
  Properties properties = stored(AcquisitionSequence(frames({3, 2, 1})));
  original.configuration(&properties);
  EXPECT_EQ(properties, stored(original));
  AcquisitionSequence read(frames({1}));
  read.configure(&properties);
  EXPECT_EQ(read, original);

  for (const char* missing : {"frameAcquisitions", "eventOrder"}) {
    Properties incomplete = stored(AcquisitionSequence(frames({2})));
    incomplete.removeSubProperties(missing);
    read.configure(&incomplete);
    EXPECT_EQ(read, original) << missing;
  }
  read.configure(nullptr);
  EXPECT_EQ(read, original);
}

TEST(AcquisitionSequence, UnreadableValuesLeaveEverythingAsItWas) {
  const AcquisitionSequence before(frames({2}));
  for (const auto& spoil : std::initializer_list<std::function<void(Properties&)>>{
           [](auto& p) { p.addSubProperties("eventOrder").setParam("eventIndex", "one"); },
           [](auto& p) { p.addSubProperties("eventOrder").setParam("acquisitionIndex", 1.5); },
           [](auto& p) { p.setParam("interEventDelays", "0 100us"); }}) {
    Properties properties = stored(AcquisitionSequence(frames({1, 1})));
    spoil(properties);
    AcquisitionSequence sequence(before);
    const ExpectedLog log;
    sequence.configure(&properties);
    EXPECT_EQ(sequence, before);
    EXPECT_EQ(log.messages().size(), 1u);
  }
}

TEST(AcquisitionSequence, InconsistentContentsAreLoggedAndKept) {
  Properties properties = stored(AcquisitionSequence(frames({2})));
  properties.addSubProperties("eventOrder"); // without values: event 0 of frame 0 once more
  properties.addSubProperties("eventOrder").setParam("eventIndex", 5);
  properties.setParam("interEventDelays", "nan -1 0 0");
  std::vector<Log::Entry> entries;
  const int sink = Log::addSink([&](const Log::Entry& entry) { entries.push_back(entry); });
  AcquisitionSequence sequence;
  sequence.configure(&properties);
  Log::removeSink(sink);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].level, Log::Debug);
  EXPECT_EQ(entries[0].category, "AcquisitionSequence configuration is inconsistent: {}");
  EXPECT_EQ(entries[0].message, "AcquisitionSequence: Invalid event index in event order during coverage check.");
  EXPECT_EQ(sequence.eventOrder(), order({{0, 0}, {0, 1}, {0, 0}, {0, 5}}));
  EXPECT_EQ(sequence.interEventDelays(), (Delays{{}, -1.0, 0.0, 0.0}));
  EXPECT_THROW(sequence.eventsInExecutionOrder(), std::out_of_range);
  EXPECT_THROW(sequence.effectiveFrameAcquisition(0), std::out_of_range);
}

} // namespace
} // namespace Kelvaris::US
