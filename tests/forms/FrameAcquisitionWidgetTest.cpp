#include "FormTools.h"

#include "gui/FrameAcquisitionWidget.h"
#include "support/ExpectedLog.h"

#include <QButtonGroup>
#include <QDoubleSpinBox>
#include <QStackedWidget>

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <utility>

namespace Kelvaris::Tests {
namespace {

using US::FrameAcquisition;
using US::FrameAcquisitionWidget;
using US::FrameParameters;
using US::Transducer;

constexpr double kDegree = M_PI / 180.0;
constexpr const char *kFocused = "focusedButton", *kPlane = "planeWaveButton", *kDiverging = "divergingWaveButton";

struct Row {
  const char* scanType;
  const char* box;
  const char* key;
  const char* shown; ///< of a new form
  double value;      ///< of the key, then
  const char* typed;
  double stored;
  bool ignoresZero;
};

constexpr Row kRows[] = {
    {kFocused, "endDepthDoubleSpinBox", "endDepth", "20.00mm", 20.0, "42.5", 42.5, true},
    {kFocused, "pulseFrequencyDoubleSpinBox", "pulseFrequency", "2.00MHz", 2e6, "3.5", 3.5e6, true},
    {kFocused, "pulseLengthDoubleSpinBox", "pulseLength", "2.00", 2.0, "1,5", 1.5, false},
    {kFocused, "speedOfSoundDoubleSpinBox", "speedOfSound", "1540.00m/s", 1.54e6, "1480", 1.48e6, false},
    {kFocused, "transmitApertureSpinBox", "maxTransmitAperture", "64", 64, "32", 32, false},
    {kFocused, "receiveApertureSpinBox", "maxReceiveAperture", "64", 64, "16", 16, false},
    {kFocused, "receiveSamplingFrequencyDoubleSpinBox", "receiveSamplingFrequency", "10.00MHz", 1e7, "40", 4e7, true},
    {kFocused, "focalDepthDoubleSpinBox", "focalDepth", "40.00mm", 40.0, "30", 30.0, true},
    {kFocused, "steeringAngleDoubleSpinBox", "steeringAngle", "0.00\u00b0", 0.0, "-10", -10 * kDegree, false},
    {kFocused, "numberBeamsSpinBox", "numberFocusedBeamsTotal", "16", 16, "8", 8, false},
    {kPlane, "planeAngleRangeDoubleSpinBox", "planeAngleRange", "30.00\u00b0", M_PI / 6, "20", 20 * kDegree, false},
    {kPlane, "numberPlaneAperturesSpinBox", "numberApertures", "4", 4, "2", 2, false},
    {kPlane, "numberPlanesSpinBox", "numberEventsPerAperture", "16", 16, "3", 3, false},
    {kDiverging, "virtualSourceDistanceDoubleSpinBox", "virtualSourceDistance", "10.00mm", 10.0, "25", 25.0, false},
    {kDiverging, "steeringAngleRangeDoubleSpinBox", "steeringAngleRange", "30.00\u00b0", M_PI / 6, "45", 45 * kDegree,
     false},
    {kDiverging, "numberDivergingAperturesSpinBox", "numberApertures", "4", 4, "1", 1, false},
    {kDiverging, "numberDivergingSpinBox", "numberEventsPerAperture", "16", 16, "5", 5, false},
};

TEST(FrameAcquisitionWidgetTest, EveryBoxReachesTheFrameInTheUnitsOfTheModel) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.box);
    FrameAcquisitionWidget form;
    form.show();
    click(form, row.scanType);
    EXPECT_TRUE(child(form, row.box).isVisible());
    EXPECT_EQ(shown(form, row.box), row.shown);
    EXPECT_DOUBLE_EQ(number(form.frameAcquisition(), row.key), row.value);

    Signals<FrameAcquisition> changed(form, &FrameAcquisitionWidget::frameAcquisitionChanged);
    enter(form, row.box, row.typed);
    EXPECT_GE(changed.count, 1);
    EXPECT_EQ(changed.last, form.frameAcquisition());
    EXPECT_DOUBLE_EQ(number(changed.last, row.key), row.stored);
    if (!row.ignoresZero) continue;
    changed.count = 0;
    enter(form, row.box, "0");
    EXPECT_EQ(changed.count, 0);
    EXPECT_DOUBLE_EQ(number(form.frameAcquisition(), row.key), row.stored);
    EXPECT_NE(child<QDoubleSpinBox>(form, row.box).value(), 0.0) << "the box must show again what holds";
  }
}

TEST(FrameAcquisitionWidgetTest, TheScanTypeChoosesThePageAndTheEvents) {
  FrameAcquisitionWidget form;
  auto& pages = child<QStackedWidget>(form, "specificParametersStackedWidget");
  Signals<FrameAcquisition> changed(form, &FrameAcquisitionWidget::frameAcquisitionChanged);
  int signalled = 0;
  for (const auto& [button, type, events] :
       {std::tuple{kPlane, 1, 64u}, std::tuple{kDiverging, 2, 64u}, std::tuple{kFocused, 0, 16u}}) {
    click(form, button);
    EXPECT_EQ(changed.count, ++signalled) << button;
    EXPECT_EQ(pages.currentIndex(), type);
    EXPECT_EQ(number(changed.last, "eventType"), type);
    EXPECT_EQ(changed.last.events().size(), events);
    EXPECT_TRUE(form.isUpToDate());
  }
  // Both kinds of waves show the one count.
  click(form, kPlane);
  enter(form, "numberPlanesSpinBox", "7");
  click(form, kDiverging);
  EXPECT_EQ(shown(form, "numberDivergingSpinBox"), "7");
}

TEST(FrameAcquisitionWidgetTest, ShowsAFrameWithoutASignalAndKeepsWhatTheBoxesCantShow) {
  FrameParameters parameters{1, 200.0, 1.126e6, 12.0, 1.5555e6, 150, 130, 1.2e8, {}, {2.0, 1, 600}, {}};
  const FrameAcquisition frame(Transducer::createLinear(150, 0.2), parameters);
  FrameAcquisitionWidget form;
  Signals<FrameAcquisition> changed(form, &FrameAcquisitionWidget::frameAcquisitionChanged);
  form.setFrameAcquisition(frame);
  form.setTransducer(frame.transducer());
  EXPECT_EQ(changed.count, 0);
  EXPECT_EQ(form.frameAcquisition(), frame);
  EXPECT_TRUE(child<QPushButton>(form, kPlane).isChecked());
  for (const auto& [box, text] :
       {std::pair{"endDepthDoubleSpinBox", "160.00mm"}, std::pair{"pulseFrequencyDoubleSpinBox", "1.13MHz"},
        std::pair{"pulseLengthDoubleSpinBox", "10.00"}, std::pair{"speedOfSoundDoubleSpinBox", "1555.50m/s"},
        std::pair{"transmitApertureSpinBox", "128"}, std::pair{"receiveSamplingFrequencyDoubleSpinBox", "99.99MHz"},
        std::pair{"planeAngleRangeDoubleSpinBox", "99.99\u00b0"}, std::pair{"numberPlanesSpinBox", "512"}})
    EXPECT_EQ(shown(form, box), text) << box;

  enter(form, "numberPlaneAperturesSpinBox", "2");
  parameters.planeWave.numberApertures = 2;
  // Regions and geometry are those of the new events, too.
  EXPECT_EQ(form.frameAcquisition(), FrameAcquisition(frame.transducer(), parameters));
}

TEST(FrameAcquisitionWidgetTest, EventsWithoutParametersStayUntilAScanTypeIsChosen) {
  FrameAcquisition frame = focusedFrame(Transducer::createLinear(64, 0.15));
  frame.events().pop_back();
  FrameAcquisitionWidget form;
  form.setFrameAcquisition(frame);
  EXPECT_EQ(form.findChild<QButtonGroup*>()->checkedButton(), nullptr);
  enter(form, "endDepthDoubleSpinBox", "25");
  EXPECT_EQ(form.frameAcquisition().events(), frame.events());
  click(form, kFocused);
  EXPECT_EQ(form.frameAcquisition().events().size(), 16u);
  EXPECT_EQ(number(form.frameAcquisition(), "endDepth"), 25.0);
}

TEST(FrameAcquisitionWidgetTest, WhatMakesNoFrameIsLoggedAndTheLastOneStays) {
  FrameAcquisitionWidget form;
  form.setTransducer(Transducer::createLinear(32, 0.3));
  const FrameAcquisition before = form.frameAcquisition();
  EXPECT_EQ(before.transducer().numElements(), 32);
  {
    const ExpectedLog log;
    click(form, kPlane);
    EXPECT_TRUE(log.contains("maxTransmitAperture is 64, maxReceiveAperture 64, and the array has 32 elements"));
    EXPECT_FALSE(form.isUpToDate());
    EXPECT_EQ(form.frameAcquisition(), before);
    enter(form, "transmitApertureSpinBox", "32");
  }
  enter(form, "receiveApertureSpinBox", "16");
  EXPECT_TRUE(form.isUpToDate());
  EXPECT_EQ(form.frameAcquisition().events().size(), 64u);
}

TEST(FrameAcquisitionWidgetTest, FramesThatNobodyCouldPlayAreRefused) {
  FrameAcquisitionWidget form;
  click(form, kDiverging);
  const FrameAcquisition before = form.frameAcquisition();
  {
    const ExpectedLog log;
    enter(form, "numberDivergingSpinBox", "1");
    EXPECT_TRUE(log.contains("4 of the frame's 4 events"));
    EXPECT_TRUE(log.contains("at least 2 emissions per aperture"));
  }
  EXPECT_FALSE(form.isUpToDate());
  EXPECT_EQ(form.frameAcquisition(), before);
  click(form, kPlane);
  EXPECT_TRUE(form.isUpToDate()) << "a single plane wave has an angle";

  constexpr double kFullTurn = 127 * 0.3 / (2.0 * M_PI); // radius that 128 elements surround
  for (const auto& [radius, fits] : {std::pair{0.9 * kFullTurn, false}, {kFullTurn, false}, {1.1 * kFullTurn, true}}) {
    const ExpectedLog log;
    form.setTransducer(Transducer::createConvex(128, 0.3, radius));
    EXPECT_EQ(form.isUpToDate(), fits) << radius;
    EXPECT_EQ(log.contains("they need a radius above 6.064 mm"), !fits) << radius;
  }
}

TEST(FrameAcquisitionWidgetTest, SamplingFrequenciesAreLimitedToWhatTheDeviceOffers) {
  FrameAcquisitionWidget form;
  Signals<FrameAcquisition> changed(form, &FrameAcquisitionWidget::frameAcquisitionChanged);
  form.setReceiveSamplingFrequencyOptions(std::pair(20e6, 120e6));
  EXPECT_EQ(changed.count, 0);
  EXPECT_EQ(number(form.frameAcquisition(), "receiveSamplingFrequency"), 1e7);
  enter(form, "receiveSamplingFrequencyDoubleSpinBox", "100");
  EXPECT_EQ(number(changed.last, "receiveSamplingFrequency"), 1e8);
  form.setReceiveSamplingFrequencyOptions({});
  EXPECT_EQ(number(form.frameAcquisition(), "receiveSamplingFrequency"), 1e8);
  EXPECT_EQ(shown(form, "receiveSamplingFrequencyDoubleSpinBox"), "99.99MHz");
}

} // namespace
} // namespace Kelvaris::Tests
