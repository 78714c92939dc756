#include "Gui/DefaultAlgorithmController.h"

#include "Core/Parameter.h"
#include "Gui/DefaultControllerDecorator.h"
#include "Lib/Algorithm.h"
#include "Lib/FactoryRegistry.h"
#include "forms/PanelWindow.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>

#include <gtest/gtest.h>

#include <atomic>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Kelvaris {
namespace {

enum class Mode { Linear, Nearest };

/// One parameter of each type.
class Everything : public Algorithm {
public:
  Everything() {
    for (ParameterBase* parameter :
         std::initializer_list<ParameterBase*>{&useIt, &count, &dynamicRange, &frequency, &limit, &size, &mode, &name})
      registerParameter(parameter, &mutex);
    count.setAttribute("min", "1");
    count.setAttribute("max", "20");
    dynamicRange.setAttribute("suffix", "dB");
    dynamicRange.setAttribute("decimals", "1");
    dynamicRange.setAttribute("min", "5");
    dynamicRange.setAttribute("max", "100");
    frequency.setAttribute("suffix", "Hz");
    limit.setAttribute("min", "0.1");
    limit.setAttribute("max", "4");
    limit.setAttribute("step", "0.1");
    mode.setAttribute("values", "Linear, Nearest");
  }
  void configure(const Properties* properties) override {
    configured.push_back(*properties);
    Algorithm::configure(properties);
    if (count.value() == 13) count = 12; // it knows better
    frequency.setEnabled(useIt);
  }
  void compute() override {}
  OwningDataList takeOutput() override { return {}; }

  std::mutex mutex;
  Parameter<bool> useIt{"useIt", true};
  Parameter<int> count{"count", 3};
  Parameter<double> dynamicRange{"dynamicRange", 50.0};
  Parameter<double> frequency{"frequency", 6.6666667e6};
  Parameter<std::optional<double>> limit{"limit", std::nullopt};
  Parameter<Eigen::Vector2i> size{"outputSize", {512, 256}};
  Parameter<Mode> mode{"mode", Mode::Linear};
  Parameter<std::string> name{"name", "probe"};
  std::vector<Properties> configured;
};

class DefaultForm : public ::testing::Test {
protected:
  void open(bool atOnce) {
    form = std::make_unique<DefaultAlgorithmController>(&algorithm, "Test", false, false);
    form->setMainWindow(&window);
    form->setConfigureOnChanged(atOnce);
    form->show();
    QApplication::setActiveWindow(form.get());
  }
  template <typename Widget = QWidget> Widget& find(const std::string& name) {
    auto* const found = form->findChild<Widget*>(QString::fromStdString(name));
    if (!found) throw std::runtime_error("no widget " + name);
    return *found;
  }
  /// In place of what is there; `last` ends it.
  void type(const std::string& key, const char* text, Qt::Key last = Qt::Key_Return) {
    find("editor_" + key).setFocus();
    QWidget* const focused = QApplication::focusWidget();
    QTest::keyClick(focused, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClicks(focused, text);
    QTest::keyClick(focused, last);
  }
  std::string shown(const std::string& key) {
    QWidget& widget = find("editor_" + key);
    if (const auto* box = qobject_cast<QComboBox*>(&widget)) return box->currentText().toStdString();
    if (const auto* box = qobject_cast<QAbstractButton*>(&widget)) return box->isChecked() ? "on" : "off";
    if (widget.property("text").isValid()) return widget.property("text").toString().toStdString();
    return find("editor_" + key + "_0").property("text").toString().toStdString() + "|" +
           find("editor_" + key + "_1").property("text").toString().toStdString();
  }
  void set(const char* key, const char* text) {
    Properties properties;
    properties.setParam(key, std::string(text));
    for (ParameterBase* parameter : algorithm.parameters())
      parameter->read(properties);
  }
  std::string value(const char* key) { return algorithm.parameter(key)->text(); }

  Tests::PanelWindow window;
  Everything algorithm;
  std::unique_ptr<DefaultAlgorithmController> form;
};

TEST_F(DefaultForm, ShowsAnyValueAndLeavesItAlone) {
  const struct {
    const char *key, *text, *shown;
  } cases[] = {{"useIt", "false", "off"},
               {"count", "3", "3"},
               {"count", "2000", "2000"}, // a range is no more than a hint
               {"count", "-2147483647", "-2147483647"},
               {"dynamicRange", "50", "50.0 dB"},
               {"dynamicRange", "0.30000000000000004", "0.30000000000000004 dB"},
               {"dynamicRange", "-inf", "-inf"},
               {"frequency", "6666666.7", "6666666.7 Hz"},
               {"frequency", "1e+300", "1e+300 Hz"},
               {"frequency", "5e-300", "5e-300 Hz"},
               {"frequency", "nan", "nan"},
               {"frequency", "inf", "inf Hz"},
               {"limit", "", "automatic"},
               {"limit", "0.05", "0.05"},
               {"limit", "3", "3.0"},
               {"outputSize", "512 -7", "512|-7"},
               {"mode", "1", "Nearest"},
               {"mode", "9", "9"},
               {"name", " a  b ", " a  b "}};
  open(true);
  for (const auto& c : cases) {
    set(c.key, c.text);
    QCoreApplication::processEvents();
    EXPECT_EQ(shown(c.key), c.shown);
    for (std::size_t i = 0; i <= algorithm.parameters().size(); ++i)
      QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : form.get(), Qt::Key_Tab);
    EXPECT_EQ(value(c.key), c.text);
  }
  EXPECT_TRUE(algorithm.configured.empty()) << "the form must not answer";
  EXPECT_EQ(window.stack.count(), 0);
}

TEST_F(DefaultForm, WhatTheUserEntersReachesTheAlgorithmAtOnce) {
  const struct {
    const char *key, *typed;
    Qt::Key last;
    const char* value;
  } cases[] = {{"useIt", "", Qt::Key_Space, "false"},
               {"count", "7", Qt::Key_Tab, "7"},
               {"count", "7", Qt::Key_Up, "8"},
               {"count", "", Qt::Key_Return, "3"},
               {"count", "99", Qt::Key_Return, "9"}, // a second digit would be too much
               {"dynamicRange", "45.25", Qt::Key_Return, "45.25"},
               {"dynamicRange", "45,5 dB", Qt::Key_Return, "45.5"},
               {"dynamicRange", "400", Qt::Key_Return, "400"}, // a range is no more than a hint
               {"dynamicRange", "1", Qt::Key_Down, "1"},
               {"dynamicRange", "1e999", Qt::Key_Return, "50"}, // no number
               {"dynamicRange", "-", Qt::Key_Return, "50"},     // no number: as before
               {"dynamicRange", "4x0", Qt::Key_Return, "40"},
               {"dynamicRange", "99.5", Qt::Key_Up, "100"},
               {"frequency", "2.5e6", Qt::Key_Return, "2500000"},
               {"frequency", "1000", Qt::Key_Down, "990"},
               {"frequency", "", Qt::Key_PageUp, "7666666.7"},
               {"limit", "2.5", Qt::Key_Return, "2.5"},
               {"limit", "0.2", Qt::Key_Up, "0.3"}, // and not 0.30000000000000004
               {"limit", "", Qt::Key_Up, "0.1"},
               {"outputSize", "300", Qt::Key_Return, "300 256"},
               {"mode", "", Qt::Key_Down, "1"},
               {"name", "a b", Qt::Key_Tab, "a b"},
               {"name", "", Qt::Key_Delete, "probe"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.key) + ": " + c.typed);
    algorithm.configureDefaults();
    open(true);
    type(c.key, c.typed, c.last);
    EXPECT_EQ(value(c.key), c.value);
    for (const Properties& properties : algorithm.configured)
      EXPECT_TRUE(properties.params().size() == 1 && properties.hasParam(c.key)) << "nothing but what was changed";
    algorithm.configured.clear();
  }
}

TEST_F(DefaultForm, AnOptionalNumberCanBeGivenUpAgain) {
  open(true);
  auto* const clear = find("editor_limit").findChild<QToolButton*>();
  EXPECT_FALSE(clear->isVisible());
  type("limit", "1.5");
  EXPECT_TRUE(clear->isVisible());
  QTest::mouseClick(clear, Qt::LeftButton);
  EXPECT_EQ(algorithm.limit.value(), std::nullopt);
  type("limit", "2.5");
  type("limit", "", Qt::Key_Delete);
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
  EXPECT_EQ(algorithm.limit.value(), std::nullopt);
  QTest::mouseClick(find("editor_limit").findChild<QLineEdit*>(), Qt::LeftButton); // into the text "automatic"
  QTest::keyClicks(QApplication::focusWidget(), "3");
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
  EXPECT_EQ(algorithm.limit.value(), 3.0);
}

TEST_F(DefaultForm, ShowsWhatTheAlgorithmMakesOfAValueAndWhatIsDisabled) {
  open(true);
  type("count", "13");
  EXPECT_EQ(shown("count"), "12");
  type("useIt", "", Qt::Key_Space);
  EXPECT_FALSE(find("editor_frequency").isEnabled());
  for (const char* part : {"<b>Dynamic range</b> (dynamicRange)", "Takes a number, 5 to 100, in dB.", "Default: 50 dB"})
    EXPECT_TRUE(find("editor_dynamicRange").toolTip().contains(part)) << part;
}

TEST_F(DefaultForm, CollectsChangesUntilTheyAreApplied) {
  open(false);
  DefaultControllerDecorator decorator(form.get(), "Test");
  form->setDefaultDecorator(&decorator);
  form->init();
  decorator.show();
  QApplication::setActiveWindow(&decorator);
  type("count", "7");
  type("dynamicRange", "60");
  algorithm.mode = Mode::Nearest; // by someone else, meanwhile
  algorithm.count = 4;
  QCoreApplication::processEvents();
  EXPECT_TRUE(algorithm.configured.empty());
  EXPECT_EQ(shown("mode") + " " + shown("count"), "Nearest 7");

  QTest::mouseClick(&find<QPushButton>("resetButton"), Qt::LeftButton);
  EXPECT_EQ(shown("count"), "4");
  EXPECT_FALSE(find("applyButton").isEnabled());
  type("count", "7");
  type("dynamicRange", "60");
  QTest::keyClick(&find<QPushButton>("applyButton"), Qt::Key_Space);
  ASSERT_EQ(algorithm.configured.size(), 1u);
  EXPECT_EQ(algorithm.configured[0].params(), (std::vector<Properties::Param>{{"count", "7"}, {"dynamicRange", "60"}}));
  EXPECT_EQ(window.stack.undoText(), "Change 2 settings");

  // "Compute" takes along what isn't even finished.
  find("editor_count").setFocus();
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_A, Qt::ControlModifier);
  QTest::keyClicks(QApplication::focusWidget(), "9");
  int seen = 0;
  QObject::connect(&decorator, &DefaultControllerDecorator::computeRequested, [&] { seen = algorithm.count; });
  decorator.findChild<QPushButton*>("computeButton")->click();
  EXPECT_EQ(seen, 9);
  decorator.hide();
}

TEST_F(DefaultForm, ChangesCanBeTakenBackWhileTheFormLives) {
  open(true);
  QUndoStack& stack = window.stack;
  type("dynamicRange", "60");
  type("dynamicRange", "70");
  type("dynamicRange", "80");
  type("frequency", "1e6");
  type("dynamicRange", "90");
  EXPECT_EQ(stack.count(), 3) << "changes of one editor in a row are one";
  EXPECT_EQ(stack.undoText(), "Change dynamic range");
  stack.undo();
  stack.undo();
  EXPECT_EQ(shown("dynamicRange") + ", " + shown("frequency"), "80.0 dB, 6666666.7 Hz");
  stack.undo();
  EXPECT_EQ(algorithm.dynamicRange.value(), 50.0);
  stack.redo();
  EXPECT_EQ(algorithm.dynamicRange.value(), 80.0);
  EXPECT_EQ(algorithm.configured.back().params(), (std::vector<Properties::Param>{{"dynamicRange", "80"}}));
  type("dynamicRange", "50");
  EXPECT_EQ(stack.count(), 0) << "back where it began, and the commands after it are gone";
  algorithm.count = 12;
  type("count", "13");
  EXPECT_EQ(stack.count(), 0) << "the algorithm took no other value";
  EXPECT_EQ(shown("count"), "12");

  type("dynamicRange", "60");
  type("frequency", "1e6");
  form.reset();
  stack.undo();
  stack.undo();
  EXPECT_EQ(algorithm.dynamicRange.value(), 60.0);
  EXPECT_EQ(stack.count(), 0);
}

TEST_F(DefaultForm, FollowsChangesOnOtherThreadsUntilItGoes) {
  open(true);
  std::atomic<bool> done = false;
  std::thread other([&] {
    for (int i = 0; !done; ++i)
      algorithm.count = 1 + i % 20;
  });
  for (int i = 0; i < 20; ++i) {
    QCoreApplication::processEvents();
    type("dynamicRange", i % 2 ? "60" : "70");
  }
  form.reset();
  open(true);
  done = true;
  other.join();
  QCoreApplication::processEvents();
  EXPECT_EQ(shown("count"), value("count"));
}

TEST_F(DefaultForm, WhatIsBeingTypedGoesWithTheForm) {
  for (const char* key : {"count", "dynamicRange", "name"}) {
    open(true);
    find(std::string("editor_") + key).setFocus();
    QTest::keyClicks(QApplication::focusWidget(), "1");
    form.reset();
    EXPECT_TRUE(algorithm.configured.empty());
  }
}

TEST_F(DefaultForm, CanBeReachedWithoutAMouse) {
  open(true);
  std::vector<std::string> visited;
  find("editor_useIt").setFocus();
  for (int i = 0; i < 9; ++i) {
    visited.push_back(QApplication::focusWidget()->objectName().toStdString());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
  }
  EXPECT_EQ(visited, (std::vector<std::string>{"editor_useIt", "editor_count", "editor_dynamicRange",
                                               "editor_frequency", "editor_limit", "editor_outputSize_0",
                                               "editor_outputSize_1", "editor_mode", "editor_name"}));
  QString letters;
  for (const QLabel* label : form->findChildren<QLabel*>()) {
    EXPECT_NE(label->buddy(), nullptr);
    const int mark = label->text().indexOf('&');
    ASSERT_GE(mark, 0);
    const QChar letter = label->text()[mark + 1].toLower();
    EXPECT_FALSE(letters.contains(letter)) << label->text().toStdString();
    letters += letter;
  }
}

TEST_F(DefaultForm, IsTheFormOfAlgorithmsWithoutOneOfTheirOwn) {
  const auto made = FactoryRegistry::get().createAlgorithmController(&algorithm);
  auto& generic = dynamic_cast<DefaultAlgorithmController&>(*made);
  EXPECT_FALSE(generic.configureOnChanged());
  EXPECT_THROW(DefaultAlgorithmController(nullptr, "", false, false), std::invalid_argument);
  std::string refusal;
  std::thread([&] {
    try {
      DefaultAlgorithmController elsewhere(&algorithm, "", false, false);
    } catch (const std::runtime_error& error) {
      refusal = error.what();
    }
  }).join();
  EXPECT_EQ(refusal, "Forms are for the thread of the QApplication; this is another one");
}

} // namespace
} // namespace Kelvaris
