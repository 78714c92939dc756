#include "apps/Program.h"
#include "support/EnvironmentVariable.h"
#include "support/ExpectedLog.h"
#include "support/TemporaryFolder.h"
#include "viewer/ForeignWindow.h"
#include "viewer/OnDisplay.h"
#include "viewer/VirtualDisplay.h"

#include "viewer/LiveDisplay.h"
#include "viewer/MessageBar.h"
#include "viewer/ViewerWindow.h"
#include "viewer/Workspace.h"
#include "viewer/view/ColorMap.h"
#include "viewer/view/ImageCanvas.h"
#include "viewer/view/ImageView.h"

#include "Gui/Controller.h"
#include "Lib/Algorithm.h"
#include "Lib/FactoryRegistry.h"
#include "Lib/PluginManager.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDockWidget>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>
#include <QtTest>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <malloc.h>
#include <unistd.h>

namespace Kelvaris::Tests {
namespace {

namespace fs = std::filesystem;
using Viewer::ViewerWindow;

/// A display, and the application of this process on it.
class Display : public testing::Environment {
public:
  void SetUp() override {
    m_display.emplace();
    if (!m_display->problem().empty()) return;
    setenv("DISPLAY", m_display->name().c_str(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    setenv("KELVARIS_PLUGIN_PATH", KELVARIS_PROGRAM_PLUGIN, 1);
    unsetenv("QT_SCALE_FACTOR");
    mallopt(M_MMAP_THRESHOLD, 1 << 16); // as the program
    m_application = std::make_unique<QApplication>(m_count, m_arguments);
    PluginManager::get().loadAll();
  }
  void TearDown() override {
    m_application.reset();
    m_display.reset();
  }
  std::string problem() const { return m_display->problem(); }

private:
  char m_name[7] = "viewer";
  char* m_arguments[2] = {m_name, nullptr};
  int m_count = 1;
  std::optional<VirtualDisplay> m_display;
  std::unique_ptr<QApplication> m_application;
};

Display& display() {
  static auto* const instance = static_cast<Display*>(testing::AddGlobalTestEnvironment(new Display));
  return *instance;
}
[[maybe_unused]] const Display& g_display = display();

class ViewerTest : public testing::Test {
protected:
  void SetUp() override {
    if (!display().problem().empty()) GTEST_SKIP() << display().problem();
  }

  /// The recording that ships, as a file, and the picture that the command line makes of its first image.
  void importRecording() {
    fs::create_symlink(fs::path(KELVARIS_EXAMPLES) / "recordings" / "rotating_disk", m_folder / "source");
    runSuccessfully("import source/PWI_disk.mat --dataset RF --layout fastTime,channels,frames --frame-rate 10000 "
                    "--acquisition source/acquisition.xml --output all.kvx",
                    m_folder.path());
    runSuccessfully("run all.kvx --images 0 --output disk.kvx --chain source/chain.xml --output disk.png",
                    m_folder.path());
    m_picture = QImage(QString::fromStdString((m_folder / "disk.png").string()));
    ASSERT_FALSE(m_picture.isNull());
  }

  ViewerWindow& open() {
    ViewerWindow& window = m_window.emplace(nullptr, m_log);
    window.show();
    window.activateWindow(); // without a window manager nobody else does
    EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
    return window;
  }

  /// A simulated stream, live in the view.
  static void addStream(ViewerWindow& window) {
    const ExpectedLog expected; // a new stream asks for SIMUS, which isn't there
    ASSERT_NO_FATAL_FAILURE(chooseFromMenu(window, {"File", "New stream", "Simulated Ultrasound Channel Data"}));
    ASSERT_TRUE(waitUntil([&] { return window.live().shown() > 0; }));
  }
  static void select(ViewerWindow& window, QTreeWidgetItem* row) {
    window.findChild<QTreeWidget*>("dataList")
        ->setCurrentItem(row, 0, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  }

  TemporaryFolder m_folder;
  QImage m_picture;
  Viewer::LogModel m_log;
  std::optional<ViewerWindow> m_window;
};

/// Types a value into the field of a panel, as a user does.
void enter(QWidget& window, const char* field, const QString& text, Qt::Key last = Qt::Key_Return) {
  auto* const editor = window.findChild<QWidget*>(field);
  ASSERT_TRUE(editor) << field;
  ASSERT_TRUE(waitUntil([&] { return editor->isVisible(); })) << field;
  editor->setFocus();
  QTest::keyClick(editor, Qt::Key_A, Qt::ControlModifier);
  QTest::keyClicks(editor, text);
  QTest::keyClick(editor, last);
}

/// Chooses an entry that asks for a file, and the file in its dialog.
void chooseFile(ViewerWindow& window, const QStringList& entry, const fs::path& file) {
  QTimer dialogs; // the dialog has an event loop of its own
  QObject::connect(&dialogs, &QTimer::timeout, [&] {
    if (!QApplication::activeModalWidget()) return;
    dialogs.stop();
    auto* const name = QApplication::activeModalWidget()->findChild<QLineEdit*>("fileNameEdit");
    ASSERT_TRUE(name);
    name->setText(QString::fromStdString(file.string())); // typed, a list of guesses would come up
    auto* const buttons = QApplication::activeModalWidget()->findChild<QDialogButtonBox*>();
    for (QAbstractButton* button : buttons->buttons())
      if (buttons->buttonRole(button) == QDialogButtonBox::AcceptRole) QTest::mouseClick(button, Qt::LeftButton);
  });
  dialogs.start(10);
  ASSERT_NO_FATAL_FAILURE(chooseFromMenu(window, entry));
}

TEST_F(ViewerTest, ChainFromTheMenuShowsThePictureOfTheCommandLine) {
  ASSERT_NO_FATAL_FAILURE(importRecording());
  ViewerWindow& window = open();
  Viewer::Workspace& workspace = window.workspace();

  ASSERT_NO_FATAL_FAILURE(chooseFile(window, {"File", "Open..."}, m_folder / "disk.kvx"));
  ASSERT_TRUE(waitUntil([&] { return workspace.items().size() == 1; }));
  // Each step's result is selected when it is there, and takes the next step.
  const auto apply = [&](const QString& algorithm, const std::vector<std::pair<const char*, QString>>& values) {
    const std::size_t items = workspace.items().size();
    ASSERT_NO_FATAL_FAILURE(chooseFromMenu(window, {"Algorithms", "Ultrasound", algorithm}));
    ASSERT_TRUE(waitUntil([&] { return workspace.items().size() == items + 1 && !workspace.isBusy(); }));
    for (const auto& [field, value] : values)
      ASSERT_NO_FATAL_FAILURE(enter(window, field, value));
  };
  // The folded carrier of this recording, which is beyond what the form's steps reach.
  ASSERT_NO_FATAL_FAILURE(apply("IQ Demodulation", {{"editor_samplingFrequency", "6.6666667e6"},
                                                    {"editor_demodulationFrequency", "-1.6666667e6"}}));
  ASSERT_NO_FATAL_FAILURE(
      apply("Beamforming", {{"editor_fNumber", "1"}, {"editor_outputSize_0", "250"}, {"editor_outputSize_1", "350"}}));
  ASSERT_NO_FATAL_FAILURE(
      apply("Log Compression", {{"editor_dynamicRange", "30"}, {"editor_referenceAmplitude", "30000"}}));
  ASSERT_NO_FATAL_FAILURE(chooseFromMenu(window, {"View", "One to one"}));
  EXPECT_TRUE(waitUntil([&] { return findPicture(screenshot(), m_picture).has_value(); }))
      << "written by the command line: " << m_picture.width() << " x " << m_picture.height();

  // And back: another dynamic range is another picture, until it is undone.
  auto* const field = window.findChild<QWidget*>("editor_dynamicRange");
  ASSERT_TRUE(field);
  for (int i = 0; i < 10; ++i)
    QTest::keyClick(field, Qt::Key_Up);
  EXPECT_TRUE(waitUntil([&] { return !findPicture(screenshot(), m_picture).has_value(); }));
  QTest::keyClick(field, Qt::Key_Z, Qt::ControlModifier);
  EXPECT_TRUE(waitUntil([&] { return findPicture(screenshot(), m_picture).has_value(); }));
  ASSERT_NO_FATAL_FAILURE(enter(window, "editor_outputSize_1", "300", Qt::Key_Tab));
  const auto rows = [&] { return window.view().images()->get(0).descriptor().height(); };
  EXPECT_TRUE(waitUntil([&] { return rows() == 300; }));
  auto* const height = window.findChild<QWidget*>("editor_outputSize_1");
  height->setFocus();
  QTest::keyClick(height, Qt::Key_Z, Qt::ControlModifier);
  EXPECT_TRUE(waitUntil([&] { return rows() == 350; })) << "the value, not only the text";

  // The session comes back as it was looked at, though the last step's result isn't what was.
  auto* const list = window.findChild<QTreeWidget*>("dataList");
  select(window, list->topLevelItem(0));
  const int shown = window.view().images()->get(0).descriptor().width();
  ASSERT_NE(shown, 250) << "as the last picture";
  window.view().setColorMap(2);
  window.view().setMapping({Viewer::DisplayMapping::Law::Decibels, -3.0, 55.5});
  window.view().canvas().lookAt({20.0, 900.0}, 3.0);
  const Viewer::ViewState state = window.view().state();
  select(window, list->topLevelItem(0)->child(0));
  EXPECT_EQ(window.view().state().colorMap, "Gray");
  select(window, list->topLevelItem(0));
  EXPECT_EQ(window.view().state(), state);
  ASSERT_NO_FATAL_FAILURE(chooseFile(window, {"File", "Save session..."}, m_folder / "a.kvs"));
  ASSERT_TRUE(waitUntil([&] { return fs::exists(m_folder / "a.kvs") && !workspace.isBusy(); }));
  window.open(m_folder / "a.kvs");
  ASSERT_TRUE(waitUntil([&] { return workspace.items().size() == 4 && !workspace.isBusy(); }));
  EXPECT_EQ(window.view().images()->get(0).descriptor().width(), shown);
  const Viewer::ViewState back = window.view().state();
  EXPECT_EQ(back.mapping, state.mapping);
  EXPECT_EQ(back.colorMap, state.colorMap);
  EXPECT_NEAR(back.magnification, 3.0, 1e-9);
  EXPECT_NEAR(back.center.y(), state.center.y(), 0.5);

  QTreeWidgetItem* const beamformed = list->topLevelItem(0)->child(0)->child(0);
  select(window, beamformed->child(0));
  list->setFocus();
  QTest::keyClick(list, Qt::Key_Delete);
  EXPECT_EQ(list->selectedItems(), QList<QTreeWidgetItem*>({beamformed})) << "to go on with";

  const ExpectedLog expected;
  const auto& message = *window.findChild<Viewer::MessageBar*>();
  ASSERT_NO_FATAL_FAILURE(enter(window, "editor_outputSize_0", "0"));
  EXPECT_TRUE(waitUntil([&] { return message.text().contains("Beamforming failed"); }));
  list->setFocus();
  QTest::keyClick(list, Qt::Key_Delete);
  EXPECT_TRUE(message.isHidden()) << "goes with the step";
}

TEST_F(ViewerTest, TheProgramShowsThePictureOfTheCommandLine) {
  ASSERT_NO_FATAL_FAILURE(importRecording());
  QProcess program;
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  environment.insert("XDG_CONFIG_HOME", QString::fromStdString(m_folder.path().string()));
  program.setProcessEnvironment(environment);
  program.setWorkingDirectory(QString::fromStdString(m_folder.path().string()));
  program.start(KELVARIS_VIEWER, {"disk.kvx", "--chain", KELVARIS_EXAMPLES "/recordings/rotating_disk/chain.xml"});
  const ForeignWindow window("kelvaris-viewer");
  // One to one, whatever has just been shown.
  EXPECT_TRUE(waitUntil([&] {
    window.pressKey("1", Qt::ControlModifier);
    return findPicture(screenshot(), m_picture).has_value();
  })) << program.readAllStandardError().toStdString();
  window.pressKey("q", Qt::ControlModifier);
  ASSERT_TRUE(program.waitForFinished()) << "nothing was changed, so nothing is asked";
  EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(program.exitCode(), 0);
}

TEST_F(ViewerTest, SaysWhatIsWrong) {
  const ExpectedLog expected;
  ViewerWindow& window = open();
  const auto& message = *window.findChild<Viewer::MessageBar*>();
  EXPECT_TRUE(message.isHidden());

  writeFile(m_folder / "empty.kvx", "");
  writeFile(m_folder / "text.kvs", "no session");
  const std::string endless(300, 'x'); // longer than the system's names
  writeFile(m_folder / "chain.xml", "<chain/>");
  for (const char* name : {"missing.kvx", "empty.kvx", "text.kvs", "chain.xml", endless.c_str()}) {
    window.open(m_folder / name);
    EXPECT_TRUE(waitUntil([&] { return message.text().contains(name); })) << name;
    QTest::keyClick(&window, Qt::Key_Escape);
    EXPECT_TRUE(waitUntil([&] { return message.isHidden(); })) << name;
  }
  EXPECT_TRUE(waitUntil([&] { return m_log.rowCount() >= 4; })) << "the log keeps them";

  const QAction* const beamforming = window.findChild<QAction*>("USImgFormation.Beamforming");
  ASSERT_TRUE(beamforming);
  EXPECT_FALSE(beamforming->isEnabled());
  EXPECT_TRUE(beamforming->statusTip().contains("select an entry")) << beamforming->statusTip().toStdString();
  EXPECT_TRUE(window.findChild<QAction*>("USImgFormation.CreateStreamIoSimulatedChannelData")->isEnabled());
}

TEST_F(ViewerTest, WhatNothingHasSavedIsNotLostWithoutAQuestion) {
  ViewerWindow& window = open();
  auto& workspace = window.workspace();
  const auto answer = [](QMessageBox::StandardButton button) {
    QTimer::singleShot(0, [button] {
      auto* const question = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      ASSERT_TRUE(question);
      QTest::mouseClick(question->button(button), Qt::LeftButton);
    });
  };
  auto* const list = window.findChild<QTreeWidget*>("dataList");
  const auto actions = window.findChildren<QAction*>();
  const QAction* const exportPicture = *std::find_if(actions.begin(), actions.end(), [](const QAction* action) {
    return action->shortcut() == QKeySequence("Ctrl+E");
  });
  ASSERT_NO_FATAL_FAILURE(addStream(window));
  workspace.startRecording(*workspace.items().front());
  answer(QMessageBox::Cancel);
  EXPECT_FALSE(window.close());
  EXPECT_TRUE(workspace.isRecording());
  ASSERT_TRUE(waitUntil([&] { return window.live().shown() > 5; }));

  workspace.items().front()->stream()->stopAsync().wait();
  window.view().setColorMap(2);
  QTimer fileDialogs;
  QObject::connect(&fileDialogs, &QTimer::timeout, [] {
    if (auto* const dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget())) dialog->reject();
  });
  fileDialogs.start(10);
  answer(QMessageBox::Save);
  EXPECT_FALSE(window.close());
  EXPECT_FALSE(workspace.isRecording());
  ASSERT_EQ(workspace.items().size(), 2u) << "what has been recorded is kept, though no file was chosen";
  EXPECT_EQ(window.view().state().colorMap, "Gray");
  select(window, list->topLevelItem(0));
  EXPECT_TRUE(window.view().images()) << "the last ones of the stream";
  EXPECT_EQ(window.live().shown(), 0) << "it emits nothing more";
  EXPECT_EQ(window.view().state().colorMap, Viewer::colorMaps()[2].name);

  QTest::keyClick(list, Qt::Key_Delete); // the stream; what has been recorded stays
  ASSERT_EQ(workspace.items().size(), 1u);
  EXPECT_TRUE(workspace.items().front()->images());
  for (const auto& [button, left] : {std::pair(QMessageBox::No, 1u), std::pair(QMessageBox::Yes, 0u)}) {
    EXPECT_TRUE(exportPicture->isEnabled());
    answer(button);
    QTest::keyClick(list, Qt::Key_Delete);
    EXPECT_EQ(workspace.items().size(), left);
  }
  EXPECT_FALSE(exportPicture->isEnabled());
}

TEST_F(ViewerTest, GoesToTheSettingsOfAnAlgorithmOnAStream) {
  ViewerWindow& window = open();
  ASSERT_NO_FATAL_FAILURE(addStream(window));
  window.findChild<QAction*>("USImgFormation.SingleImageStreamAlgorithmExecutor")->trigger();
  ASSERT_NO_FATAL_FAILURE(enter(window, "comboBox_alg", "IQ Demodulation"));
  QTest::mouseClick(window.findChild<QPushButton*>("pushButton_start"), Qt::LeftButton);
  QWidget* field = nullptr;
  ASSERT_TRUE(waitUntil([&] { return (field = window.findChild<QWidget*>("editor_decimationFactor")); }));
  QWidget* dock = field;
  while (!qobject_cast<QDockWidget*>(dock))
    dock = dock->parentWidget();
  EXPECT_EQ(dock->windowTitle(), "Stream: IQ Demodulation");
  dock->close();
  EXPECT_FALSE(field->isVisible());
  QTest::keyClick(window.findChild<QTreeWidget*>("dataList"), Qt::Key_F4);
  EXPECT_TRUE(waitUntil([&] { return field->isVisible() && dock->isAncestorOf(QApplication::focusWidget()); }));
}

TEST_F(ViewerTest, ControllersThatOthersAddEndWithIt) {
  const ExpectedLog expected; // a new stream asks for SIMUS, which isn't there
  const FactoryRegistry& registry = FactoryRegistry::get();
  const auto algorithm =
      registry.algorithmDescriptor("USImgFormation.CreateStreamIoSimulatedChannelData", false)->create({});
  ASSERT_TRUE(algorithm);
  auto controller = registry.createAlgorithmController(algorithm.get());
  const QPointer<QWidget> panel = dynamic_cast<Controller&>(*controller).widget();
  open().addController(std::move(controller));
  EXPECT_TRUE(panel && panel->isVisible());
  m_window.reset();
  EXPECT_FALSE(panel);
}

/// Of this process, in main memory.
double residentMiB() {
  std::ifstream file("/proc/self/statm");
  double pages = 0.0;
  file >> pages >> pages;
  return pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

TEST_F(ViewerTest, LiveStreamWithChangingParametersTakesNoMoreMemory) {
  ViewerWindow& window = open();
  ASSERT_NO_FATAL_FAILURE(addStream(window));
  ASSERT_NO_FATAL_FAILURE(enter(window, "targetFrameRateDoubleSpinBox", "50"));
  const ExpectedLog expected; // each letter chooses: SIMUS first, which isn't there
  auto* const simulator = window.findChild<QComboBox*>("simulatorComboBox");
  ASSERT_TRUE(simulator);
  QTest::keyClicks(simulator, "Simple");
  ASSERT_EQ(simulator->currentText(), "Simple");

  // An emission in progress holds some 8 MiB, so the least of 20 frames counts.
  constexpr double kNone = 1e9;
  double early = kNone, late = kNone;
  long changes = 0;
  const char* const boxes[] = {"phantomOriginXDoubleSpinBox", "transmitAmplitudeDoubleSpinBox",
                               "noiseAmplitudeDoubleSpinBox", "interEventPhantomMotionZDoubleSpinBox"};
  ASSERT_TRUE(waitUntil([&] {
    const long shown = window.live().shown();
    if (shown >= 30 && shown < 50) early = std::min(early, residentMiB());
    if (shown >= 180) late = std::min(late, residentMiB());
    for (; changes < shown; ++changes) // one change a frame, up and down in turn
      QTest::keyClick(window.findChild<QWidget*>(boxes[changes % 4]), changes / 4 % 2 ? Qt::Key_Down : Qt::Key_Up);
    return shown >= 200;
  })) << window.live().shown();
  RecordProperty("growthMiB", std::to_string(late - early));
  ASSERT_LT(early, kNone);
  // Half a mebibyte of samples comes with each frame: kept, they would be 75 MiB.
  EXPECT_LT(late - early, 8.0) << "around frame 40: " << early;
}

} // namespace
} // namespace Kelvaris::Tests
