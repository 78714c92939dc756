#include "Gui/StreamControllerBase.h"

#include "Core/Log.h"
#include "Gui/QtHelpers.h"
#include "forms/PanelWindow.h"
#include "support/ExpectedLog.h"

#include <QFormLayout>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QtTest>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace Kelvaris {
namespace {

class Probe : public Stream {
public:
  explicit Probe(bool pauses = true) : Stream("probe"), m_pauses(pauses) {}
  ~Probe() override { closeAsync().wait(); }
  bool supportsPausing() const override { return m_pauses; }
  bool startImpl() override {
    if (isBroken) throw std::runtime_error("the cable is loose");
    return true;
  }
  std::atomic<bool> isBroken = false;

private:
  bool m_pauses;
};

std::unique_ptr<Stream> makeProbe(int& status) {
  status = Algorithm::Success;
  return std::make_unique<Probe>();
}

struct MakesStream : StreamAlgorithm {
  explicit MakesStream(std::function<std::unique_ptr<Stream>(int& status)> make) : m_make(std::move(make)) {}
  void compute() override {
    ++computed;
    m_status = Failure;
    replaceStream(m_make(m_status));
  }
  void resetStream() override { replaceStream(nullptr); }
  int computed = 0;

private:
  std::function<std::unique_ptr<Stream>(int& status)> m_make;
};

struct Panel : StreamControllerBase {
  explicit Panel(StreamAlgorithm* algorithm, bool ownButtons = false) : StreamControllerBase(algorithm) {
    if (ownButtons) leaveOutStartStop();
  }
  std::string shown(const char* name) const {
    const auto* const widget = findChild<QWidget*>(name);
    return widget->isVisibleTo(this) ? widget->property("text").toString().toStdString() : "-";
  }
  std::string all() const {
    return shown("streamStateLabel") + ", " + shown("pauseButton") + ", " + shown("startStopButton") + ", " +
           shown("streamMessageLabel");
  }
  void press(const char* name) const { QTest::keyClick(findChild<QPushButton*>(name), Qt::Key_Space); }
};

TEST(StreamControllerBaseTest, ControlsFollowTheStreamUntilItEnds) {
  Tests::PanelWindow window;
  MakesStream algorithm(makeProbe);
  Panel panel(&algorithm);
  panel.setMainWindow(&window);
  panel.init();
  panel.init();
  EXPECT_EQ(algorithm.computed, 1);
  ASSERT_EQ(window.data.size(), 1u);
  panel.show();
  EXPECT_EQ(panel.all(), "Not started, Pause, Start, -");
  panel.press("startStopButton"); // which opens it, too
  EXPECT_TRUE(QTest::qWaitFor([&] { return panel.all() == "Running, Pause, Stop, -"; }));
  panel.press("pauseButton");
  EXPECT_TRUE(QTest::qWaitFor([&] { return panel.all() == "Paused, Resume, Stop, -"; }));
  panel.press("pauseButton");
  EXPECT_TRUE(QTest::qWaitFor([&] { return panel.all() == "Running, Pause, Stop, -"; }));
  panel.press("startStopButton");
  EXPECT_TRUE(QTest::qWaitFor([&] { return panel.all() == "Stopped, Pause, Start, -"; }));

  dynamic_cast<Probe&>(*algorithm.stream()).isBroken = true;
  {
    const Tests::ExpectedLog log;
    panel.press("startStopButton");
    EXPECT_TRUE(QTest::qWaitFor([&] { return panel.all() == "Stopped, Pause, Start, the cable is loose"; }));
    EXPECT_TRUE(log.contains("the cable is loose"));
  }
  algorithm.stream()->closeAsync(); // by someone else
  window.data.clear();              // right behind it
  EXPECT_TRUE(QTest::qWaitFor([&] { return panel.all() == "The stream has ended, -, Start, -"; })) << panel.all();
  EXPECT_FALSE(panel.findChild<QPushButton*>("startStopButton")->isEnabled());
  panel.init();
  EXPECT_EQ(algorithm.computed, 2);
  EXPECT_EQ(panel.all(), "Not started, Pause, Start, -") << "a new stream";
}

TEST(StreamControllerBaseTest, TheTabKeyReachesTheControlsBehindThePanelsOwn) {
  MakesStream algorithm(makeProbe);
  QWidget window;
  Panel panel(&algorithm);
  panel.setParent(&window);
  QLineEdit own(&panel), other(&window);
  panel.init();
  const auto* const pause = panel.findChild<QPushButton*>("pauseButton");
  EXPECT_EQ(own.nextInFocusChain(), pause);
  EXPECT_EQ(pause->nextInFocusChain(), panel.findChild<QPushButton*>("startStopButton"));
  EXPECT_EQ(pause->nextInFocusChain()->nextInFocusChain(), &other);
}

TEST(StreamControllerBaseTest, AFailingAlgorithmLeavesThePanelAndSaysWhy) {
  const struct {
    std::function<std::unique_ptr<Stream>(int&)> make;
    const char* shown;
    std::size_t logged;
  } cases[] = {{[](int&) -> std::unique_ptr<Stream> {
                  Log::error("Test", "no probe is plugged in");
                  return nullptr;
                },
                "No stream, -, Start, no probe is plugged in", 1},
               {[](int&) -> std::unique_ptr<Stream> { throw std::runtime_error("out of memory"); },
                "No stream, -, Start, The algorithm failed: out of memory", 1},
               {[](int& status) -> std::unique_ptr<Stream> {
                  status = Algorithm::IncompleteInput;
                  return nullptr;
                },
                "No stream, -, Start, There is no stream: the algorithm ended with status 2.", 0},
               {[](int&) {
                  Log::error("Test", "it can't be opened");
                  return std::make_unique<Probe>(false);
                },
                "Not started, -, Start, it can't be opened", 1}};
  for (const auto& c : cases) {
    const Tests::ExpectedLog log;
    Tests::PanelWindow window;
    MakesStream algorithm(c.make);
    Panel panel(&algorithm);
    panel.setMainWindow(&window);
    EXPECT_NO_THROW(panel.init());
    EXPECT_EQ(panel.all(), c.shown);
    EXPECT_EQ(log.messages().size(), c.logged);
    EXPECT_EQ(window.data.size(), algorithm.stream() ? 1u : 0u);
  }
}

TEST(StreamControllerBaseTest, ControlsFitIntoAnyLayout) {
  const struct {
    std::function<void(QWidget*)> arrange;
    bool ownButtons;
  } cases[] = {{[](QWidget*) {}, false},
               {[](QWidget* panel) { QtHelpers::make<QFormLayout>(panel); }, true},
               {[](QWidget* panel) {
                  QtHelpers::make<QGridLayout>(panel).addWidget(&QtHelpers::make<QLabel>(panel, "A"), 3, 2);
                },
                false},
               {[](QWidget* panel) { QtHelpers::make<QHBoxLayout>(panel); }, true}};
  for (const auto& c : cases) {
    MakesStream algorithm(makeProbe);
    Panel panel(&algorithm, c.ownButtons);
    c.arrange(&panel);
    panel.init();
    panel.show();
    EXPECT_NE(algorithm.stream(), nullptr) << "there is no window that could have taken it";
    EXPECT_EQ(panel.all(), c.ownButtons ? "Not started, Pause, -, -" : "Not started, Pause, Start, -");
    const auto* const state = panel.findChild<QLabel*>("streamStateLabel");
    EXPECT_TRUE(panel.rect().contains(QRect(state->mapTo(&panel, QPoint()), state->size())));
    EXPECT_GT(panel.layout()->count(), 0);
  }
}

} // namespace
} // namespace Kelvaris
