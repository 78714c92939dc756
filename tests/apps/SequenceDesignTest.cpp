#include "kelvaris/SequenceDesign.h"

#include "kelvaris/AcquisitionDesign.h"
#include "kelvaris/Quantity.h"
#include "kelvaris/SequenceSummary.h"

#include "model/AcquisitionSequence.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <functional>

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
    std::vector<int> beams;
    std::function<void(SequenceDesign&)> change;
    const char* message;
  } cases[] = {
      {{}, [](auto&) {}, "There are no acquisitions"},
      {{2},
       [](auto& d) {
         d.ensembles = {1, 2};
       },
       "There are 2 ensemble sizes for 1 frame"},
      {{2, 2, 2},
       [](auto& d) {
         d.delays = {0.0, 0.0};
       },
       "There are 2 delays for 3 frames"},
      {{2, 2},
       [](auto& d) {
         d.ensembles = {1, 0};
       },
       "An ensemble size is 0"},
      {{2}, [](auto& d) { d.delays = {-1e-6}; }, "A delay is -1 us"},
      {{2}, [](auto& d) { d.ensembles = {2147483647}; }, "There are 4294967294 firings"},
      {{2, 2}, [](auto& d) { d.acquisitions[1] = frame(2, 0.25); }, "frame 1 of a linear array of 8 elements, 0.25 mm"},
      {{2, 2}, [](auto& d) { d.acquisitions[1] = Properties(); }, "it has no \"transducer\""}};
  for (const auto& c : cases) {
    SequenceDesign d = design(c.beams);
    c.change(d);
    EXPECT_CONTAINS(errorOf<std::invalid_argument>([&] { d.toProperties(); }), c.message);
  }
}

TEST(SequenceSummary, NamesWhatIsBrokenInAStoredSequence) {
  using Change = std::function<void(Properties&)>;
  const auto firing = [](const char* key, auto value) -> Change {
    return [=](Properties& p) { p.addSubProperties("eventOrder").setParam(key, value); };
  };
  const auto delays = [](const char* text) -> Change { return [=](auto& p) { p.setParam("interEventDelays", text); }; };
  const struct {
    Change change;
    const char* message;
  } cases[] = {{[](auto& p) { p.removeSubProperties("frameAcquisitions"); }, "no \"frameAcquisitions\""},
               {[](auto& p) { p.removeSubProperties("eventOrder"); }, "no \"eventOrder\""},
               {[](auto& p) { p.removeParam("interEventDelays"); }, "no readable \"interEventDelays\""},
               {[](auto& p) {
                  p.addSubProperties("frameAcquisitions").subProperties("transducer").setParam("numberElements", 1);
                },
                "Frame 1 of the sequence: The acquisition is broken: the transducer has 1 elements"},
               {firing("acquisitionIndex", 1), "firing 3 is of frame 1, the frames are 0 to 0"},
               {firing("acquisitionIndex", -1), "firing 3 is of frame -1"},
               {firing("eventIndex", 3), "firing 3 is event 3 of frame 0, whose events are 0 to 2"},
               {firing("eventIndex", "x"), "\"eventIndex\" of firing 3 is no whole number"},
               {firing("eventIndex", 1), "event 1 of frame 0 fires 2 times and event 0 1 times"},
               {[](auto& p) { p.subProperties("eventOrder").setParam("eventIndex", 1); }, "event 0 of frame 0 never"},
               {delays("nan nan"), "2 delays for 3 firings"},
               {delays("nan 0 -1"), "the delay after firing 2 is -1 s"},
               {delays("nan inf 0"), "the delay after firing 1 is inf s"}};
  for (const auto& c : cases) {
    Properties properties = design({3}).toProperties();
    ASSERT_NO_THROW(summarizeSequence(properties));
    c.change(properties);
    const Tests::ExpectedLog log; // of values that can't be read
    EXPECT_CONTAINS(errorOf<std::invalid_argument>([&] { summarizeSequence(properties); }), c.message);
  }
}

TEST(Quantity, ReadsNumbersWithTheirUnits) {
  const struct {
    double (*parse)(const std::string&);
    const char* text;
    std::optional<double> value;
  } cases[] = {{parseTime, "100us", 1e-4},     {parseTime, "0.1 ms", 1e-4},
               {parseTime, "2s", 2.0},         {parseTime, "250ns", 2.5e-7},
               {parseTime, "0", 0.0},          {parseTime, "100", {}},
               {parseTime, "us", {}},          {parseTime, "", {}},
               {parseTime, "1e400s", {}},      {parseTime, "100 us later", {}},
               {parseTime, "1.2.3s", {}},      {parseFrequency, "30", 30.0},
               {parseFrequency, "30Hz", 30.0}, {parseFrequency, "2.5 MHz", 2.5e6},
               {parseFrequency, "30 mm", {}},  {parseLength, "-5", -5.0},
               {parseLength, "12.5mm", 12.5},  {parseLength, "1cm", {}}};
  for (const auto& [parse, text, value] : cases) {
    if (value)
      EXPECT_EQ(parse(text), *value) << text;
    else
      EXPECT_CONTAINS(errorOf<std::invalid_argument>([&] { parse(text); }), '"' + std::string(text) + "\" is no ");
  }
}

} // namespace
} // namespace Kelvaris::CommandLine
