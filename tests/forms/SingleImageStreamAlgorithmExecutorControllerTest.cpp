#include "FormTools.h"
#include "PanelWindow.h"

#include "gui/SingleImageStreamAlgorithmExecutorController.h"
#include "streaming/StreamTools.h"
#include "support/ExpectedLog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QSpinBox>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

namespace Kelvaris::Tests {
namespace {

using US::SingleImageStreamAlgorithmExecutor;
using US::SingleImageStreamAlgorithmExecutorController;

class ExecutorPanel : public WithTestAlgorithms {
protected:
  SingleImageStreamAlgorithmExecutorController& show() {
    auto made = std::make_unique<SingleImageStreamAlgorithmExecutorController>(executor.get());
    panel = made.get();
    window.addController(std::move(made));
    return *panel;
  }
  /// As the stream does it, on another thread.
  void emitRow(const std::vector<float>& pixels) {
    std::thread([&] { input.dataSignal.emitSignal(emission(setOf({row(pixels)}))); }).join();
  }
  void startWith(const char* name) {
    auto& box = child<QComboBox>(*panel, "comboBox_alg");
    box.setFocus();
    box.lineEdit()->selectAll();
    QTest::keyClick(box.lineEdit(), Qt::Key_Delete);
    QTest::keyClicks(box.lineEdit(), name);
    click(*panel, "pushButton_start");
  }
  /// The panel, and the one of the algorithm.
  bool waitForAlgorithm() {
    return QTest::qWaitFor([&] { return window.numPanels() == 2 && !window.decorator(1).title().isEmpty(); });
  }
  bool choiceIsShown() const { return child(*panel, "comboBox_alg").isVisible(); }
  ImageStream& output() { return dynamic_cast<ImageStream&>(*window.data.at(0)[0]); }

  std::unique_ptr<SingleImageStreamAlgorithmExecutor> executor =
      std::make_unique<SingleImageStreamAlgorithmExecutor>(input, nullptr);
  PanelWindow window;
  SingleImageStreamAlgorithmExecutorController* panel = nullptr;
};

TEST_F(ExecutorPanel, SetsAndShowsTheParameters) {
  executor->queueSize = 7;
  show();
  EXPECT_EQ(shown(*panel, "spinBox_queueSize"), "7");
  enter(*panel, "spinBox_queueSize", "12");
  enter(*panel, "spinBox_imageIndex", "3");
  QTest::mouseClick(&child<QCheckBox>(*panel, "checkBox_gpu"), Qt::LeftButton, {}, QPoint(8, 8));
  QTest::mouseClick(&child<QCheckBox>(*panel, "checkBox_blocking"), Qt::LeftButton, {}, QPoint(8, 8));
  EXPECT_EQ(executor->queueSize.value(), 12);
  EXPECT_EQ(executor->imageIndex.value(), 3);
  EXPECT_TRUE(executor->processOnGpu);
  EXPECT_TRUE(executor->forceBlocking);

  std::thread([&] {
    executor->queueSize = 150; // more than the box shows
    executor->imageIndex = 1;
    executor->processOnGpu = false;
    executor->forceBlocking = false;
  }).join();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !child<QCheckBox>(*panel, "checkBox_blocking").isChecked(); }));
  EXPECT_EQ(shown(*panel, "spinBox_queueSize"), "99");
  EXPECT_EQ(shown(*panel, "spinBox_imageIndex"), "1");
  EXPECT_FALSE(child<QCheckBox>(*panel, "checkBox_gpu").isChecked());
  EXPECT_EQ(executor->queueSize.value(), 150);
}

TEST_F(ExecutorPanel, StartsAnAlgorithmAndShowsItsController) {
  input.openAsync();
  show();
  emitRow({1.0f});
  executor->waitUntilCompleted(); // lost, as there is no algorithm yet
  startWith("Show Parameters");
  ASSERT_EQ(window.data.size(), 1u);
  const Receiver receiver(output());
  EXPECT_TRUE(choiceIsShown());
  click(*panel, "startStopButton");
  EXPECT_TRUE(QTest::qWaitFor([&] { return input.state() == Stream::State::Running; })) << "what feeds the output";
  emitRow({2.0f});
  ASSERT_TRUE(waitForAlgorithm());
  EXPECT_FALSE(choiceIsShown());
  EXPECT_FALSE(child(*panel, "label_alg").isVisible());
  EXPECT_FALSE(child(*panel, "pushButton_start").isVisible());
  EXPECT_TRUE(child(*panel, "spinBox_queueSize").isVisible());
  EXPECT_EQ(window.decorator(1).title(), "Stream: Show Parameters");
  EXPECT_FALSE(child(window.decorator(1), "computeButton").isVisible());
  ASSERT_TRUE(QTest::qWaitFor([&] { return receiver.count() == 1; }));

  executor->imageIndex = 0;
  dynamic_cast<ShowParameters&>(*executor->streamAlgorithm()).first = 5;
  emitRow({3.0f});
  ASSERT_TRUE(QTest::qWaitFor([&] { return receiver.count() == 2; }));
  EXPECT_EQ(receiver.last(), (std::vector<float>{5, 0, 3}));
  EXPECT_EQ(window.data.size(), 1u) << "the output is put there once";
}

TEST_F(ExecutorPanel, StaysAsItIsWhenThereIsNoSuchAlgorithm) {
  show();
  {
    const ExpectedLog log;
    startWith("");
    EXPECT_TRUE(log.contains("There is no algorithm to start"));
    EXPECT_TRUE(window.data.empty());
    startWith("Telepathy");
    emitRow({1.0f});
    ASSERT_TRUE(QTest::qWaitFor([&] { return log.contains("Could not factory-create algorithm Telepathy"); }));
    ASSERT_TRUE(QTest::qWaitFor([&] { return executor->streamAlgorithmName().empty(); }));
    QCoreApplication::processEvents();
    EXPECT_TRUE(choiceIsShown());
    EXPECT_EQ(window.numPanels(), 1u);
  }
  startWith("Test.Show");
  emitRow({1.0f});
  EXPECT_TRUE(waitForAlgorithm());
}

TEST_F(ExecutorPanel, OffersTheNameOfARestoredExecutor) {
  auto& box = child<QComboBox>(show(), "comboBox_alg");
  EXPECT_EQ(box.count(), 10);
  EXPECT_EQ(box.currentText(), "Basic Processing");
  for (const auto& [name, count] : {std::pair{"IQ Demodulation", 10}, std::pair{"Show Parameters", 11}}) {
    Properties settings;
    settings.setParam("algorithmName", name);
    executor->configure(&settings);
    window.removeController(panel);
    auto& restored = child<QComboBox>(show(), "comboBox_alg");
    EXPECT_EQ(restored.count(), count);
    EXPECT_EQ(restored.currentText(), name);
    EXPECT_EQ(restored.itemText(restored.currentIndex()), name) << "arrows go on from there";
  }
}

TEST_F(ExecutorPanel, ShowsTheControllerOfAnAlgorithmThatIsAlreadyThere) {
  executor->setStreamAlgorithmName("Show Parameters");
  emitRow({1.0f});
  executor->waitUntilCompleted();
  ASSERT_NE(executor->streamAlgorithm(), nullptr);
  show();
  EXPECT_EQ(window.numPanels(), 1u) << "nobody has taken the output yet";
  click(*panel, "pushButton_start");
  EXPECT_EQ(window.numPanels(), 2u);
  EXPECT_EQ(window.data.size(), 1u);

  window.removeController(panel);
  EXPECT_EQ(window.numPanels(), 0u);
  show();
  EXPECT_EQ(window.numPanels(), 2u);
  EXPECT_FALSE(choiceIsShown());
}

TEST_F(ExecutorPanel, TheControllerOfTheAlgorithmGoesFirst) {
  for (const std::string first : {"panel", "dependent", "executor", "window"}) {
    SCOPED_TRACE(first);
    executor = std::make_unique<SingleImageStreamAlgorithmExecutor>(input, nullptr);
    auto ownWindow = std::make_unique<PanelWindow>();
    auto made = std::make_unique<SingleImageStreamAlgorithmExecutorController>(executor.get());
    panel = made.get();
    ownWindow->addController(std::move(made));
    startWith("Show Parameters");
    emitRow({1.0f});
    ASSERT_TRUE(QTest::qWaitFor([&] { return ownWindow->numPanels() == 2; }));
    if (first == "panel") {
      ownWindow->removeController(panel);
      EXPECT_EQ(ownWindow->numPanels(), 0u);
    } else if (first == "dependent") {
      ownWindow->removeController(&ownWindow->controller(1));
      ownWindow->removeController(panel);
    } else if (first == "executor") {
      executor.reset();
      EXPECT_EQ(ownWindow->numPanels(), 1u);
      EXPECT_FALSE(panel->isEnabled());
      panel->init();
      child<QSpinBox>(*panel, "spinBox_queueSize").setValue(3);
      Properties stored;
      panel->configuration(&stored);
      panel->configure(&stored);
    }
    ownWindow.reset();
    QCoreApplication::processEvents();
  }
}

} // namespace
} // namespace Kelvaris::Tests
