#include "Gui/StreamAlgorithmExecutorController.h"

#include "Core/Parameter.h"
#include "Lib/FactoryRegistry.h"
#include "forms/PanelWindow.h"
#include "support/ExpectedLog.h"

#include <QLabel>
#include <QSpinBox>
#include <QtTest>

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <utility>

namespace Kelvaris {
namespace {

struct PassOn : Algorithm, SequentialImageProcessor {
  PassOn() { registerParameter(&gain); }
  static bool createCompatible(const DataList&, Algorithm** a) {
    if (a) *a = std::make_unique<PassOn>().release();
    return true;
  }
  void compute() override {}
  OwningDataList takeOutput() override { return {}; }
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override {
    return {image.clone(1), components};
  }

  Parameter<int> gain{"gain", 1};
};

struct Factory : AlgorithmFactory {
  Factory() : AlgorithmFactory("Test") { registerAlgorithm<PassOn>("PassOn", "Test;Pass On"); }
};

TEST(StreamAlgorithmExecutorControllerTest, ShowsTheSettingsOnceThereIsAnAlgorithm) {
  const int owner = 0;
  FactoryRegistry::get().add(std::make_unique<Factory>(), nullptr, &owner);
  {
    ImageStream input("probe");
    StreamAlgorithmExecutor executor(input, nullptr);
    executor.autoStart = false;
    Tests::PanelWindow window;
    const auto controller = FactoryRegistry::get().createAlgorithmController(&executor);
    auto& panel = dynamic_cast<StreamAlgorithmExecutorController&>(*controller);
    panel.setMainWindow(&window);
    {
      const Tests::ExpectedLog log;
      panel.init();
      EXPECT_TRUE(log.contains("Neither an algorithm nor the name of one is given"));
    }
    panel.show();
    EXPECT_EQ(panel.findChild<QLabel*>("streamMessageLabel")->text(),
              "Neither an algorithm nor the name of one is given");
    executor.setStreamAlgorithmName("Pass On");
    panel.init(); // listens from now on
    EXPECT_FALSE(panel.findChild<QLabel*>("streamMessageLabel")->isVisible());
    ASSERT_EQ(window.data.size(), 1u);
    EXPECT_TRUE(panel.findChild<QLabel*>("waitingLabel")->isVisible());
    std::thread([&] {
      auto images = std::make_shared<SharedImageSet>();
      images->add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(4, 1)));
      input.dataSignal.emitSignal(std::make_shared<ImageStreamData>(std::move(images)));
    }).join();
    EXPECT_TRUE(QTest::qWaitFor([&] { return panel.findChild<QSpinBox*>("editor_gain") != nullptr; }));
    EXPECT_FALSE(panel.findChild<QLabel*>("waitingLabel")->isVisible());
    auto& editor = *panel.findChild<QSpinBox*>("editor_gain");
    EXPECT_TRUE(editor.isVisible());
    QTest::keyClick(&editor, Qt::Key_Up);
    panel.findChild<QWidget*>("applyButton")->setFocus();
    QTest::keyClick(panel.findChild<QWidget*>("applyButton"), Qt::Key_Space);
    EXPECT_EQ(dynamic_cast<const PassOn&>(*executor.streamAlgorithm()).gain, 2);
    EXPECT_EQ(window.stack.undoText(), "Change gain");
  }
  FactoryRegistry::get().remove(&owner);
}

} // namespace
} // namespace Kelvaris
