#include "FormTools.h"
#include "PanelWindow.h"

#include "gui/AcquisitionSequenceWidget.h"
#include "gui/SimulatedChannelDataStreamController.h"
#include "simulation/SimulatedStreamCases.h"
#include "streaming/StreamTools.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <utility>

namespace Kelvaris::Tests {
namespace {

using US::AcquisitionSequenceWidget;
using US::PhantomType;
using US::SimulatedChannelDataStreamController;
using StreamMaker = SimulatedChannelDataStreamController::StreamMaker;

using Axes = std::array<int, 3>;

/// A panel that drives a running stream of simple echoes, one frame of three plane waves.
class SimulatedStreamPanel : public SimulatedStream {
protected:
  void SetUp() override {
    SimulatedStream::SetUp();
    if (IsSkipped()) return;
    algorithm.setStream(streamOf(kSequence, 0.5));
    show();
  }

  void show() {
    auto made = std::make_unique<SimulatedChannelDataStreamController>(&algorithm);
    panel = made.get();
    window.addController(std::move(made));
  }
  SimulatedChannelDataStream& stream() { return dynamic_cast<SimulatedChannelDataStream&>(*algorithm.stream()); }
  bool reads(const char* button, const char* text) { return child<QPushButton>(*panel, button).text() == text; }
  void choose(const char* box, int index) {
    auto& comboBox = child<QComboBox>(*panel, box);
    comboBox.setFocus();
    QTest::keyClick(&comboBox, Qt::Key_Home);
    for (int i = 0; i < index; ++i)
      QTest::keyClick(&comboBox, Qt::Key_Down);
  }
  int chosen(const char* box) { return child<QComboBox>(*panel, box).currentIndex(); }
  Axes streamsAxes() {
    Properties settings;
    stream().configuration(&settings);
    US::ChannelDataLayout layout;
    layout.configure(settings.findSubProperties("channelDataLayout"));
    return {static_cast<int>(layout.axisSemantics(0)), static_cast<int>(layout.axisSemantics(1)),
            static_cast<int>(layout.axisSemantics(2))};
  }

  const AcquisitionSequence kSequence{std::vector{shortFrame(1)}};
  StreamMaker algorithm;
  PanelWindow window;
  SimulatedChannelDataStreamController* panel = nullptr;
};

struct Setting {
  const char* box;
  const char* typed;
  double (*of)(const SimulatedChannelDataStream&);
  double value;
};
using Simulated = const SimulatedChannelDataStream&;
constexpr Setting kSettings[] = {
    {"targetFrameRateDoubleSpinBox", "12.5", [](Simulated s) { return s.targetFrameRate(); }, 12.5},
    {"transmitAmplitudeDoubleSpinBox", "7", [](Simulated s) { return s.transmitAmplitude(); }, 7},
    {"echoAmplitudeDoubleSpinBox", "8.25", [](Simulated s) { return s.echoAmplitude(); }, 8.25},
    {"noiseAmplitudeDoubleSpinBox", "0", [](Simulated s) { return s.noiseAmplitude(); }, 0},
    {"phantomOriginXDoubleSpinBox", "-3.5", [](Simulated s) { return s.phantomOrigin().x(); }, -3.5},
    {"phantomOriginYDoubleSpinBox", "8", [](Simulated s) { return s.phantomOrigin().y(); }, 8},
    {"phantomOriginZDoubleSpinBox", "1", [](Simulated s) { return s.phantomOrigin().z(); }, 1},
    {"interEventPhantomMotionXDoubleSpinBox", "5", [](Simulated s) { return s.interEventPhantomMotion().x(); }, 5},
    {"interEventPhantomMotionYDoubleSpinBox", "-6", [](Simulated s) { return s.interEventPhantomMotion().y(); }, -6},
    {"interEventPhantomMotionZDoubleSpinBox", "7", [](Simulated s) { return s.interEventPhantomMotion().z(); }, 7},
};

TEST_F(SimulatedStreamPanel, EveryWidgetReachesTheRunningStream) {
  const Receiver receiver(stream());
  for (const Setting& setting : kSettings) {
    enter(*panel, setting.box, setting.typed);
    EXPECT_EQ(setting.of(stream()), setting.value) << setting.box;
  }
  choose("phantomTypeCompoBox", 1);
  EXPECT_EQ(stream().phantomType(), PhantomType::Grid5mm);
  choose("dataTypeComboBox", 1);
  EXPECT_EQ(stream().pixelType(), PixelFloat);
  const std::size_t before = receiver.count();
  ASSERT_TRUE(QTest::qWaitFor([&] { return receiver.count() > before + 1; }));
  EXPECT_EQ(receiver.received().back()->images()->get(0).descriptor().pixelType(), PixelFloat);
  choose("dataTypeComboBox", 0);
  EXPECT_EQ(stream().pixelType(), PixelInt16);
}

TEST_F(SimulatedStreamPanel, ShowsTheStreamAndChangesNothingInItButItsState) {
  stream().setTargetFrameRate(120.125);
  stream().setNoiseAmplitude(123.456);
  stream().setPhantomOrigin({-80.0, 12.345, 3.0});
  stream().setPhantomType(PhantomType::Grid5mm);
  stream().setPixelType(PixelFloat);
  ASSERT_TRUE(QTest::qWaitFor([&] { return reads("startStopPushButton", "Stop"); }));
  click(*panel, "startStopPushButton"); // what the stream does brings the panel up to date
  ASSERT_TRUE(QTest::qWaitFor([&] { return reads("startStopPushButton", "Start"); }));
  EXPECT_EQ(stream().state(), Stream::State::Open);
  for (const auto& [box, text] :
       {std::pair{"targetFrameRateDoubleSpinBox", "50.00Hz"}, std::pair{"noiseAmplitudeDoubleSpinBox", "99.99"},
        std::pair{"phantomOriginXDoubleSpinBox", "-50.00"}, std::pair{"phantomOriginYDoubleSpinBox", "12.35"},
        std::pair{"phantomOriginZDoubleSpinBox", "3.00"}})
    EXPECT_EQ(shown(*panel, box), text) << box;
  EXPECT_EQ(chosen("phantomTypeCompoBox"), 1);
  EXPECT_EQ(chosen("dataTypeComboBox"), 1);
  EXPECT_EQ(chosen("simulatorComboBox"), 1);
  EXPECT_EQ(stream().targetFrameRate(), 120.125);
  EXPECT_EQ(stream().noiseAmplitude(), 123.456);
  EXPECT_EQ(stream().phantomOrigin(), Eigen::Vector3d(-80.0, 12.345, 3.0));
  EXPECT_EQ(stream().acquisitionSequence(), kSequence);
  const Receiver receiver(stream());
  click(*panel, "startStopPushButton");
  ASSERT_TRUE(QTest::qWaitFor([&] { return reads("startStopPushButton", "Stop") && receiver.count() > 2; }));
}

TEST_F(SimulatedStreamPanel, TheLayoutBoxesAlwaysShowAPermutation) {
  const std::array boxes = {&child<QComboBox>(*panel, "dataLayoutXComboBox"),
                            &child<QComboBox>(*panel, "dataLayoutYComboBox"),
                            &child<QComboBox>(*panel, "dataLayoutZComboBox")};
  Axes start = {0, 1, 2};
  do {
    for (std::size_t changed = 0; changed < 3; ++changed)
      for (int axis = 0; axis < 3; ++axis) {
        for (std::size_t i = 0; i < 3; ++i)
          boxes[i]->setCurrentIndex(start[i]);
        boxes[changed]->setCurrentIndex(axis);
        Axes expected = start; // who showed the axis takes the one that has become free
        std::swap(expected[changed], *std::find(expected.begin(), expected.end(), axis));
        EXPECT_EQ((Axes{boxes[0]->currentIndex(), boxes[1]->currentIndex(), boxes[2]->currentIndex()}), expected);
        EXPECT_EQ(streamsAxes(), expected);
      }
  } while (std::next_permutation(start.begin(), start.end()));
}

TEST_F(SimulatedStreamPanel, AppliesTheSequence) {
  auto& sequenceWidget = *panel->findChild<AcquisitionSequenceWidget*>();
  EXPECT_EQ(sequenceWidget.acquisitionSequence(), kSequence);
  enter(*panel, "numberPlanesSpinBox", "2");
  EXPECT_EQ(stream().acquisitionSequence(), kSequence);
  click(*panel, "applyButton");
  EXPECT_EQ(stream().acquisitionSequence().numEvents(), 2);
  const Receiver receiver(stream());
  ASSERT_TRUE(QTest::qWaitFor(
      [&] { return receiver.count() > 0 && receiver.received().back()->images()->get(0).descriptor().slices() == 2; }));
}

TEST_F(SimulatedStreamPanel, TheTabKeyWalksDownThePanel) {
  const QStringList reached = walkDownByTab(*panel, child(*panel, "startStopPushButton"));
  for (const char* widget :
       {"noiseAmplitudeDoubleSpinBox", "planeAngleRangeDoubleSpinBox", "pitchDoubleSpinBox", "dataLayoutZComboBox"})
    EXPECT_TRUE(reached.contains(widget)) << widget;
}

TEST_F(SimulatedStreamPanel, ANewStreamGetsTheSequenceOfTheForm) {
  window.removeController(panel);
  algorithm.resetStream();
  {
    const ExpectedLog simusIsNotAtHand;
    show();
    EXPECT_EQ(chosen("simulatorComboBox"), 1);
    choose("simulatorComboBox", 0);
    EXPECT_EQ(chosen("simulatorComboBox"), 1) << "back again";
    EXPECT_TRUE(simusIsNotAtHand.contains("SIMUS simulation failed, falling back to simple echos"));
  }
  EXPECT_EQ(stream().acquisitionSequence().numEvents(), 16);
  ASSERT_EQ(window.data.size(), 2u);
  EXPECT_EQ(window.data.back()[0], algorithm.stream());
}

TEST_F(SimulatedStreamPanel, RefusesOtherStreams) {
  window.removeController(panel);
  algorithm.setStream(std::make_unique<ImageStream>("camera"));
  EXPECT_EQ(errorOf<std::runtime_error>([&] { show(); }),
            "SimulatedChannelDataStreamController::init was provided with incorrect stream type");
}

/// Never has a stream.
class NoStreamMaker : public StreamMaker {
protected:
  std::unique_ptr<Stream> makeStream() const override { throw std::runtime_error("no simulator today"); }
};

TEST(SimulatedStreamPanelTest, IsDisabledWithoutAnyStreamAndSaysWhy) {
  NoStreamMaker algorithm;
  PanelWindow window;
  const ExpectedLog log;
  auto made = std::make_unique<SimulatedChannelDataStreamController>(&algorithm);
  SimulatedChannelDataStreamController& panel = *made;
  EXPECT_NO_THROW(window.addController(std::move(made)));
  EXPECT_FALSE(panel.isEnabled());
  EXPECT_TRUE(log.contains("no simulator today"));
  const auto& message = child<QLabel>(window.decorator(0), "messageLabel");
  EXPECT_TRUE(message.isVisible() && message.isEnabled());
  EXPECT_TRUE(message.text().contains("no simulator today"));
}

TEST_F(SimulatedStreamPanel, OutlivesItsStream) {
  window.data.clear();
  EXPECT_FALSE(panel->isEnabled());
  QCoreApplication::processEvents();
  click(*panel, "startStopPushButton");
  child<QDoubleSpinBox>(*panel, "noiseAmplitudeDoubleSpinBox").setValue(3.0);
  panel->findChild<AcquisitionSequenceWidget*>()->setTransducer(kCurved, true);
}

TEST_F(SimulatedStreamPanel, EndsWhileTheStreamGoesOn) {
  const Receiver receiver(stream());
  for (int i = 0; i < 20; ++i) {
    stream().stopAsync();
    stream().startAsync();
    window.removeController(panel);
    show();
  }
  window.removeController(panel);
  QCoreApplication::processEvents();
  const std::size_t before = receiver.count();
  EXPECT_TRUE(QTest::qWaitFor([&] { return receiver.count() > before; }));
}

} // namespace
} // namespace Kelvaris::Tests
