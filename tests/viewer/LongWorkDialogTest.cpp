// The window during a simulation, which keeps the main thread.
#include "viewer/LongWorkDialog.h"

#include "GL/RequireGL.h"
#include "forms/FormTools.h"
#include "simulation/FakePythonPlugin.h"
#include "support/EnvironmentVariable.h"
#include "support/ExpectedLog.h"
#include "support/TemporaryFolder.h"
#include "viewer/ImageFiles.h"
#include "viewer/LogModel.h"
#include "viewer/ViewerTestTools.h"
#include "viewer/ViewerWindow.h"

#include "Lib/PluginManager.h"
#include "Lib/PointCloud.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QStyleOptionSpinBox>
#include <QTimer>

#include <functional>
#include <optional>

namespace Kelvaris::Viewer {
namespace {

using Tests::child;
using Tests::ExpectedLog;
using Tests::FakePython;

class LongWorkDialogTest : public ::testing::Test {
protected:
  void SetUp() override {
    KELVARIS_REQUIRE_GL();
    python.answer = [this] { return simulate(); };
    PluginManager::get().load(KELVARIS_PROGRAM_PLUGIN);
    window.emplace(nullptr, log);
    window->show();
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&*window));
    window->workspace().addStep("USImgFormation.CreateStreamIoSimulatedChannelData", {});
    ASSERT_EQ(window->workspace().items().size(), 1u);
    dialog = window->findChild<LongWorkDialog*>();
    QObject::connect(&beat, &QTimer::timeout, [this] { ++beats; });
    beat.start(10);
  }
  void TearDown() override {
    window.reset();
    PluginManager::get().unload("Test.Python");
  }

  /// Lasts until `meanwhile` says so, which is called between reports.
  FakePython::Results simulate() {
    ++simulations;
    for (int i = 0; !meanwhile(); ++i)
      if (!LongWork::report("Simulating", i % 10 / 10.0)) throw std::runtime_error("Canceled");
    const auto apertures = std::dynamic_pointer_cast<SharedImageSet>(python.variables.at("receive_aperture_indices"));
    const auto mem = apertures->get(0).mem();
    const int channels = static_cast<int>(mem->valueAsDouble(1, 0, 0, 0) - mem->valueAsDouble(0, 0, 0, 0)) + 1;
    auto set = std::make_shared<SharedImageSet>();
    set->setVolumetric(true);
    set->add(std::make_shared<SharedImage>(Tests::imageOf(ImageDescriptor(PixelFloat, channels, 50, mem->height()),
                                                          [](int, int, int, int) { return 1; })));
    return {set};
  }
  QDoubleSpinBox& box(const char* name) { return child<QDoubleSpinBox>(*window, name); }
  double originY() {
    Properties settings;
    window->workspace().items()[0]->stream()->configuration(&settings);
    Eigen::Vector3d origin = Eigen::Vector3d::Zero();
    settings.param("phantomOrigin", origin);
    return origin.y();
  }
  bool awaitBeats(int count) {
    return QTest::qWaitFor([&, end = beats + count] { return beats >= end; }, 90'000);
  }

  const Tests::TemporaryFolder folder;
  const Tests::EnvironmentVariable cache{"TMPDIR", folder.path().string()};
  FakePython& python = dynamic_cast<Tests::FakePythonPlugin&>(PluginManager::get().load(FAKE_PYTHON_PLUGIN)).python;
  LogModel log;
  std::optional<ViewerWindow> window;
  LongWorkDialog* dialog = nullptr;
  QTimer beat;
  int beats = 0, simulations = 0;
  std::function<bool()> meanwhile = [] { return true; };
};

TEST_F(LongWorkDialogTest, TheWindowLivesAndNothingElseHappensMeanwhile) {
  Progress progress;
  ImageFiles::save(folder / "images.kvx", *imagesOf(1.0F), progress);
  QDoubleSpinBox& x = box("phantomOriginXDoubleSpinBox");
  QStyleOptionSpinBox option;
  option.initFrom(&x);
  const QRect arrow = x.style()->subControlRect(QStyle::CC_SpinBox, &option, QStyle::SC_SpinBoxUp, &x);
  const QPoint pointer = x.mapTo(&*window, arrow.center());
  QWindow* const handle = window->windowHandle();
  // A window manager may leave the focus at the arrow, which the loss of it would let go.
  dialog->setWindowFlags(Qt::ToolTip | Qt::WindowDoesNotAcceptFocus);
  bool typed = false;
  int beatsBefore = beats;
  simulations = 0;
  meanwhile = [&] {
    if (simulations > 1) return true;                                                  // of what waited for the end
    if (!window->workspace().isFileWorkGoingOn()) window->open(folder / "images.kvx"); // there when the work is over
    EXPECT_EQ(window->workspace().items().size(), 1u);
    if (beats - beatsBefore < 80)
      return false; // the list's panel has asked for the stream's settings, had it not known
    if (!typed) {
      EXPECT_TRUE(dialog->isVisible());
      QTest::mouseRelease(handle, Qt::LeftButton, {}, pointer); // of the arrow
      QTest::keyClick(handle, Qt::Key_Q, Qt::ControlModifier);
      window->close();
      box("phantomOriginYDoubleSpinBox").setValue(21.0); // by whatever way
    }
    return std::exchange(typed, true) && beats - beatsBefore > 100;
  };
  QTest::mousePress(handle, Qt::LeftButton, {}, pointer);
  EXPECT_TRUE(typed);
  EXPECT_TRUE(dialog->isHidden());
  EXPECT_TRUE(window->isVisible());
  ASSERT_TRUE(QTest::qWaitFor([&] { return window->workspace().items().size() == 2; }, 90'000));
  EXPECT_EQ(originY(), 21.0);
  ASSERT_TRUE(awaitBeats(100)); // the arrow doesn't go on
  EXPECT_EQ(simulations, 2);
  EXPECT_EQ(x.value(), 0.25);
}

TEST_F(LongWorkDialogTest, CancelBringsSimpleEchoes) {
  meanwhile = [&] {
    if (dialog->isVisible()) QTest::keyClick(dialog->windowHandle(), Qt::Key_Escape);
    return false;
  };
  const ExpectedLog expected;
  child<QComboBox>(*window, "phantomTypeCompoBox").setCurrentIndex(1);
  EXPECT_TRUE(expected.contains("SIMUS simulation failed, falling back to simple echos"));
  EXPECT_TRUE(dialog->isHidden());
  EXPECT_EQ(child<QComboBox>(*window, "simulatorComboBox").currentText(), "Simple");
}

} // namespace
} // namespace Kelvaris::Viewer
