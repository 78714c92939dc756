#include "kelvaris/SequenceDesign.h"

#include "kelvaris/AcquisitionDesign.h"
#include "kelvaris/Quantity.h"
#include "kelvaris/SequenceSummary.h"

#include "model/AcquisitionSequence.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

namespace Kelvaris::CommandLine {
namespace {

using Tests::errorOf;
using US::AcquisitionSequence;
using Delays = std::vector<std::optional<double>>;

/// A frame of so many beams.
Properties frame(int beams, double pitch = 0.3) {
  AcquisitionDesign d;
  d.wave = Wave::Focused;
  d.numElements = 8;
  d.pitch = pitch;
  d.pulseFrequency = 5e6;
  d.samplingFrequency = 2e7;
  d.endDepth = 10.0;
  d.distance = 10.0;
  d.beams = beams;
  return d.toProperties();
}

SequenceDesign design(const std::vector<int>& beams) {
  SequenceDesign d;
  for (const int n : beams)
    d.acquisitions.push_back(frame(n));
  return d;
}

AcquisitionSequence modelOf(const SequenceDesign& d) {
  const Properties properties = d.toProperties();
  AcquisitionSequence sequence;
  sequence.configure(&properties);
  sequence.checkConsistency();
  return sequence;
}

TEST(SequenceDesign, FiresAsTheModelDoes) {
  using Mode = AcquisitionSequence::EnsembleMode;
  SequenceDesign d = design({3, 2});
  d.ensembles = {2, 3};
  d.delays = {1e-4, std::nullopt};
  std::vector<US::FrameAcquisition> frames(2);
  for (std::size_t f = 0; f < frames.size(); ++f)
    frames[f].configure(&d.acquisitions[f]);
  for (const auto& [order, mode] :
       {std::pair(FiringOrder::PerEvent, Mode::PerEvent), std::pair(FiringOrder::PerFrame, Mode::PerFrame)}) {
    d.order = order;
    EXPECT_EQ(modelOf(d), AcquisitionSequence(frames, {2, 3}, {mode, mode}, d.delays));
  }

  d = design({2, 3});
  d.ensembles = {2};
  d.delays = {0.0, 1e-4};
  d.order = FiringOrder::Interleaved;
  const AcquisitionSequence sequence = modelOf(d);
  const std::vector<AcquisitionSequence::EventIndex> order = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {0, 0},
                                                              {1, 2}, {0, 1}, {1, 0}, {1, 1}, {1, 2}};
  EXPECT_EQ(sequence.eventOrder(), order);
  EXPECT_EQ(sequence.interEventDelays(), (Delays{0.0, 1e-4, 0.0, 1e-4, 0.0, 1e-4, 0.0, 1e-4, 1e-4, 1e-4}));
  const SequenceSummary summary = summarizeSequence(d.toProperties());
  EXPECT_EQ(summary.repetitions, (std::vector{2, 2}));
  EXPECT_EQ(summary.order.size(), order.size());
  EXPECT_EQ(summary.frames[1].numEvents, 3);
}

TEST(SequenceDesign, RefusesWhatMakesNoSequence) {
  const struct {
    std::vector<Properties> frames;
    std::vector<int> ensembles;
    Delays delays;
    const char* message;
  } cases[] = {{{}, {1}, {0.0}, "There are no acquisitions"},
               {{frame(2)}, {1, 2}, {0.0}, "There are 2 ensemble sizes for 1 frame"},
               {{frame(2)}, {0}, {0.0}, "An ensemble size is 0"},
               {{frame(2)}, {1}, {-1e-6}, "A delay is -1 us"},
               {{frame(2)}, {2147483647}, {0.0}, "There are 4294967294 firings"},
               {{frame(2), frame(2, 0.25)}, {1}, {0.0}, "frame 1 of a linear array of 8 elements, 0.25 mm"}};
  for (const auto& c : cases) {
    SequenceDesign d;
    d.acquisitions = c.frames;
    d.ensembles = c.ensembles;
    d.delays = c.delays;
    EXPECT_CONTAINS(errorOf<std::invalid_argument>([&] { d.toProperties(); }), c.message);
  }
}

TEST(SequenceSummary, NamesWhatIsBrokenInAStoredSequence) {
  using Change = std::function<void(Properties&)>;
  const auto firing = [](const char* key, auto value) -> Change {
    return [=](Properties& p) { p.addSubProperties("eventOrder").setParam(key, value); };
  };
  const auto delays = [](const char* text) -> Change { return [=](auto& p) { p.setParam("interEventDelays", text); }; };
  const std::pair<Change, const char*> cases[] = {
      {[](auto& p) { p.removeSubProperties("frameAcquisitions"); }, "no \"frameAcquisitions\""},
      {[](auto& p) { p.removeSubProperties("eventOrder"); }, "no \"eventOrder\""},
      {[](auto& p) { p.addSubProperties("frameAcquisitions"); }, "Frame 1 of the sequence: The acquisition is broken"},
      {firing("acquisitionIndex", 1), "firing 3 is of frame 1, the frames are 0 to 0"},
      {firing("acquisitionIndex", -1), "firing 3 is of frame -1"},
      {firing("eventIndex", 3), "firing 3 is event 3 of frame 0, whose events are 0 to 2"},
      {firing("eventIndex", "x"), "\"eventIndex\" of firing 3 is no whole number"},
      {firing("eventIndex", 1), "event 1 of frame 0 fires 2 times and event 0 1 times"},
      {[](auto& p) { p.subProperties("eventOrder").setParam("eventIndex", 1); }, "event 0 of frame 0 never"},
      {delays("nan nan"), "2 delays for 3 firings"},
      {delays("nan 0 -1"), "the delay after firing 2 is -1 s"}};
  for (const auto& [change, message] : cases) {
    Properties properties = design({3}).toProperties();
    change(properties);
    const Tests::ExpectedLog log; // of values that can't be read
    EXPECT_CONTAINS(errorOf<std::invalid_argument>([&] { summarizeSequence(properties); }), message);
  }
}

TEST(Quantity, ReadsNumbersWithTheirUnits) {
  EXPECT_EQ(parseTime("100us"), 1e-4);
  EXPECT_EQ(parseTime("0.1 ms"), 1e-4);
  EXPECT_EQ(parseTime("0"), 0.0);
  EXPECT_EQ(parseFrequency("30"), 30.0);
  EXPECT_EQ(parseFrequency("2.5 MHz"), 2.5e6);
  EXPECT_EQ(parseLength("-5mm"), -5.0);
  for (const std::string text : {"100", "us", "", "1e400s", "100 us later", "1.2.3s", "1 mm"})
    EXPECT_CONTAINS(errorOf<std::invalid_argument>([&] { parseTime(text); }), '"' + text + "\" is no time");
}

} // namespace
} // namespace Kelvaris::CommandLine
