#include "FormTools.h"

#include "gui/AcquisitionSequenceWidget.h"
#include "gui/Editing.h"
#include "gui/TransducerWidget.h"
#include "support/ExpectedLog.h"

#include <QApplication>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QImage>
#include <QListWidget>
#include <QPalette>
#include <QStackedWidget>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Kelvaris::Tests {
namespace {

using US::AcquisitionSequence;
using US::AcquisitionSequenceWidget;
using US::FrameAcquisition;
using US::Transducer;

class AcquisitionSequenceWidgetTest : public ::testing::Test {
protected:
  AcquisitionSequenceWidgetTest() { form.show(); }

  QWidget& page() { return *pages.currentWidget(); }
  bool isEnabled(const char* button) const { return child(form, button).isEnabled(); }
  QStringList items() const {
    QStringList texts;
    for (int i = 0; i < list.count(); ++i)
      texts.append(list.item(i)->text());
    return texts;
  }
  /// Of the frames of a sequence.
  static std::vector<double> endDepths(const AcquisitionSequence& sequence) {
    std::vector<double> depths;
    for (const FrameAcquisition& frame : sequence.frameAcquisitions())
      depths.push_back(number(frame, "endDepth"));
    return depths;
  }
  /// Three frames, which differ in their end depths, applied.
  void makeThree() {
    for (const char* depth : {"31", "32", "33"}) {
      if (depth[1] > '1') click(form, "addFrameAcquisitionButton");
      enter(page(), "endDepthDoubleSpinBox", depth);
    }
    click(form, "applyButton");
  }

  AcquisitionSequenceWidget form{nullptr, true};
  QListWidget& list = child<QListWidget>(form, "frameAcquisitionsListWidget");
  QStackedWidget& pages = child<QStackedWidget>(form, "frameAcquisitionsStackedWidget");
  Signals<AcquisitionSequence> changed{form, &AcquisitionSequenceWidget::acquisitionSequenceChanged};
};

TEST_F(AcquisitionSequenceWidgetTest, StartsWithOneFrameApplied) {
  EXPECT_EQ(items(), QStringList({"Frame Acquisition 1"}));
  EXPECT_EQ(pages.count(), 1);
  EXPECT_EQ(form.acquisitionSequence().numEvents(), 16);
  EXPECT_EQ(form.acquisitionSequence().transducer(), Transducer::createLinear(64, 0.15));
  for (const char* button : {"removeFrameAcquisitionButton", "applyButton", "resetButton"})
    EXPECT_FALSE(isEnabled(button)) << button;
  form.applyConfigurationChanges();
  EXPECT_EQ(changed.count, 0) << "there is nothing to apply";
}

TEST_F(AcquisitionSequenceWidgetTest, PublishesEditsWhenTheyAreApplied) {
  const AcquisitionSequence before = form.acquisitionSequence();
  makeThree();
  EXPECT_EQ(changed.count, 1);
  EXPECT_EQ(endDepths(changed.last), std::vector({31.0, 32.0, 33.0}));
  EXPECT_EQ(changed.last, form.acquisitionSequence());
  EXPECT_FALSE(isEnabled("applyButton"));

  list.setCurrentRow(1);
  enter(page(), "endDepthDoubleSpinBox", "50");
  EXPECT_EQ(endDepths(form.acquisitionSequence()), std::vector({31.0, 32.0, 33.0})) << "not applied yet";
  click(form, "resetButton");
  EXPECT_EQ(changed.count, 1);
  EXPECT_FALSE(isEnabled("resetButton"));
  list.setCurrentRow(1);
  EXPECT_EQ(shown(page(), "endDepthDoubleSpinBox"), "32.00mm");
}

TEST_F(AcquisitionSequenceWidgetTest, RemovesTheFrameThatIsSelected) {
  const std::vector<std::vector<double>> left = {{32.0, 33.0}, {31.0, 33.0}, {31.0, 32.0}};
  for (int removed = 0; removed < 3; ++removed) {
    form.setAcquisitionSequence(AcquisitionSequence(std::vector{focusedFrame(Transducer::createLinear(64, 0.15))}));
    makeThree();
    list.setCurrentRow(removed);
    click(form, "removeFrameAcquisitionButton");
    EXPECT_EQ(items(), QStringList({"Frame Acquisition 1", "Frame Acquisition 2"}));
    EXPECT_EQ(pages.currentIndex(), list.currentRow());
    EXPECT_EQ(pages.count(), 2);
    click(form, "applyButton");
    EXPECT_EQ(endDepths(changed.last), left[static_cast<std::size_t>(removed)]);
  }
  click(form, "removeFrameAcquisitionButton");
  EXPECT_FALSE(isEnabled("removeFrameAcquisitionButton"));
}

TEST_F(AcquisitionSequenceWidgetTest, GivesAllFramesTheTransducer) {
  makeThree();
  enter(form, "pitchDoubleSpinBox", "0.3");
  EXPECT_TRUE(isEnabled("applyButton"));
  click(form, "applyButton");
  for (const FrameAcquisition& frame : changed.last.frameAcquisitions())
    EXPECT_EQ(frame, FrameAcquisition(Transducer::createLinear(64, 0.3), *frame.frameParameters()));

  form.setTransducer(Transducer::createConvex(128, 0.3, 60.0), false);
  EXPECT_EQ(changed.count, 2);
  EXPECT_TRUE(isEnabled("applyButton"));
  form.setTransducer(Transducer::createConvex(128, 0.3, 70.0), true);
  EXPECT_EQ(changed.count, 3);
  EXPECT_EQ(changed.last.transducer(), Transducer::createConvex(128, 0.3, 70.0));
  EXPECT_FALSE(isEnabled("applyButton"));
}

TEST_F(AcquisitionSequenceWidgetTest, KeepsASequenceAsItIsUntilAnEditIsApplied) {
  const FrameAcquisition frame = focusedFrame(Transducer::createLinear(96, 0.2), 2);
  const AcquisitionSequence sequence({frame, frame}, {1, 2},
                                     std::vector(2, AcquisitionSequence::EnsembleMode::PerEvent), {1e-4, std::nullopt});
  form.setAcquisitionSequence(sequence);
  EXPECT_EQ(changed.count, 0);
  EXPECT_EQ(form.acquisitionSequence(), sequence);
  EXPECT_EQ(shown(form, "numberElementsSpinBox"), "96");
  EXPECT_EQ(list.count(), 2);
  EXPECT_FALSE(isEnabled("applyButton"));
  form.setUserMadeChanges();
  click(form, "applyButton");
  EXPECT_EQ(changed.last, sequence) << "nothing was edited";
  click(form, "addFrameAcquisitionButton");
  click(form, "resetButton");
  EXPECT_EQ(form.acquisitionSequence(), sequence);
  enter(page(), "numberBeamsSpinBox", "3");
  click(form, "applyButton");
  EXPECT_EQ(changed.last.numEvents(), 2 + 3) << "every event once";

  form.setAcquisitionSequence(AcquisitionSequence());
  EXPECT_EQ(list.count(), 0);
  click(form, "addFrameAcquisitionButton");
  click(form, "applyButton");
  EXPECT_EQ(changed.last.numEvents(), 16);
}

TEST_F(AcquisitionSequenceWidgetTest, RefusesToApplyWhatMakesNoSequence) {
  click(page(), "planeWaveButton");
  click(form, "applyButton");
  EXPECT_EQ(changed.last.numEvents(), 64);
  {
    const ExpectedLog log;
    enter(form, "numberElementsSpinBox", "32");
    EXPECT_TRUE(log.contains("the array has 32 elements"));
    click(form, "applyButton");
    EXPECT_TRUE(log.contains("\"Frame Acquisition 1\""));
  }
  EXPECT_EQ(changed.count, 1);
  EXPECT_TRUE(isEnabled("applyButton")) << "the edits are still there";
  {
    const ExpectedLog whileTyping; // the first digit alone is too few
    enter(form, "numberElementsSpinBox", "80");
  }
  click(form, "applyButton");
  EXPECT_EQ(changed.last.transducer().numElements(), 80);
}

TEST_F(AcquisitionSequenceWidgetTest, RefusesEventsOfElementsThatTheArrayDoesntHave) {
  FrameAcquisition frame = focusedFrame(Transducer::createLinear(64, 0.15));
  frame.events().pop_back(); // not those of the parameters any more
  form.setAcquisitionSequence(AcquisitionSequence({frame}));
  enter(form, "numberElementsSpinBox", "36");
  click(form, "applyButton");
  EXPECT_EQ(changed.last.frameAcquisitions().at(0).events(), frame.events()) << "they use the elements up to 35";
  enter(form, "numberElementsSpinBox", "35");
  {
    const ExpectedLog log;
    click(form, "applyButton");
    EXPECT_TRUE(log.contains("event 1 of \"Frame Acquisition 1\" uses the elements 28 to 35, but the array has the "
                             "elements 0 to 34"));
  }
  EXPECT_EQ(changed.count, 1);
  EXPECT_TRUE(isEnabled("applyButton"));
}

TEST_F(AcquisitionSequenceWidgetTest, TheSamplingFrequenciesOfTheDeviceReachAllFrames) {
  form.setReceiveSamplingFrequencyOptions(std::pair(20e6, 30e6));
  click(form, "addFrameAcquisitionButton");
  for (const auto* box : form.findChildren<QDoubleSpinBox*>("receiveSamplingFrequencyDoubleSpinBox")) {
    EXPECT_EQ(box->minimum(), 20.0);
    EXPECT_EQ(box->maximum(), 30.0);
  }
}

TEST_F(AcquisitionSequenceWidgetTest, FollowsTheColoursOfTheApplication) {
  form.setFocus();
  const QPalette light = QApplication::palette();
  const QImage before = form.grab().toImage();
  QPalette dark(QColor(60, 60, 60), QColor(30, 30, 30));
  dark.setColor(QPalette::Highlight, QColor(90, 0, 0));
  dark.setColor(QPalette::HighlightedText, Qt::yellow);
  QApplication::setPalette(dark);
  const QImage switched = form.grab().toImage();
  AcquisitionSequenceWidget fresh(nullptr, true);
  fresh.resize(form.size());
  for (const char* button : {"focusedButton", "planeWaveButton", "linearButton"})
    EXPECT_EQ(child(form, button).grab().toImage(), child(fresh, button).grab().toImage()) << button;
  EXPECT_NE(switched, before);
  QApplication::setPalette(light);
  EXPECT_EQ(form.grab().toImage(), before);
}

TEST(GuardedSlotTest, AlsoWhatIsNoExceptionEndsInTheLog) {
  const ExpectedLog log;
  US::guarded("form", [] { throw 42; });
  EXPECT_TRUE(log.contains("form: "));
}

TEST_F(AcquisitionSequenceWidgetTest, TheTransducerCanBeForbidden) {
  EXPECT_TRUE(form.findChild<US::TransducerWidget*>()->isEnabled());
  const AcquisitionSequenceWidget fixed(nullptr, false);
  for (const bool expanded : {false, true}) {
    child<QGroupBox>(fixed, "transducerGroupBox").setChecked(expanded);
    EXPECT_FALSE(fixed.findChild<US::TransducerWidget*>()->isEnabled());
  }
}

TEST(AcquisitionSequenceWidgetEndTest, EndsInTheMiddleOfAnEdit) {
  auto form = std::make_unique<AcquisitionSequenceWidget>(nullptr, true);
  form->show();
  QApplication::setActiveWindow(form.get());
  auto& box = child<QAbstractSpinBox>(*form, "endDepthDoubleSpinBox");
  box.setFocus();
  int finished = 0;
  QObject::connect(&box, &QAbstractSpinBox::editingFinished, [&] { ++finished; });
  QTest::keyClicks(&box, "1");
  form.reset();
  EXPECT_EQ(finished, 1) << "the box lost the focus when nothing but QWidgets was left";
}

} // namespace
} // namespace Kelvaris::Tests
