#include "Gui/QtHelpers.h"

#include "Gui/DefaultControllerDecorator.h"

#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QStyle>
#include <QStyleOptionGroupBox>
#include <QVBoxLayout>
#include <QtTest>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace Kelvaris {
namespace {

TEST(QtHelpersTest, AnExpandableBoxGivesItsContentsBackAsTheyWere) {
  for (const bool expanded : {true, false}) {
    QWidget window;
    auto& box = QtHelpers::make<QGroupBox>(&window, "Advanced");
    auto& layout = QtHelpers::make<QVBoxLayout>(&box);
    auto& plain = QtHelpers::make<QSpinBox>(&box);
    auto& disabled = QtHelpers::make<QSpinBox>(&box);
    auto& hidden = QtHelpers::make<QSpinBox>(&box);
    for (QWidget* widget : {&plain, &disabled, &hidden})
      layout.addWidget(widget);
    disabled.setEnabled(false);
    hidden.hide();
    QtHelpers::makeExpandable(box, expanded);
    window.show();
    QApplication::setActiveWindow(&window);
    const auto state = [&] {
      std::string text;
      for (const QWidget* widget : {&plain, &disabled, &hidden})
        text += widget->isVisible() ? widget->isEnabled() ? "enabled " : "disabled " : "hidden ";
      return text;
    };
    const std::string open = "enabled disabled hidden ", closed = "hidden hidden hidden ";
    EXPECT_EQ(state(), expanded ? open : closed);
    box.setFocus();
    QTest::keyClick(&box, Qt::Key_Space);
    EXPECT_EQ(state(), expanded ? closed : open);
    QStyleOptionGroupBox option;
    option.initFrom(&box);
    option.subControls = QStyle::SC_GroupBoxCheckBox | QStyle::SC_GroupBoxLabel;
    option.text = box.title();
    const QRect title = box.style()->subControlRect(QStyle::CC_GroupBox, &option, QStyle::SC_GroupBoxLabel, &box);
    QTest::mouseClick(&box, Qt::LeftButton, {}, title.center());
    EXPECT_EQ(state(), expanded ? open : closed);
    QTest::keyClick(&box, Qt::Key_Space);
    plain.setEnabled(false); // while it may be shut
    box.setChecked(true);
    EXPECT_EQ(state(), "disabled disabled hidden ");
  }
}

TEST(QtHelpersTest, TheWheelTurnsOnlyWhatHasTheFocus) {
  QWidget window;
  auto& layout = QtHelpers::make<QVBoxLayout>(&window);
  auto& box = QtHelpers::make<QSpinBox>(&window);
  auto& other = QtHelpers::make<QSpinBox>(&window);
  layout.addWidget(&box);
  layout.addWidget(&other);
  QtHelpers::ignoreWheelWithoutFocus(box);
  window.show();
  QApplication::setActiveWindow(&window);
  for (const bool focused : {false, true}) {
    (focused ? box : other).setFocus();
    QWheelEvent event(QPointF(5, 5), box.mapToGlobal(QPoint(5, 5)), {}, {0, 120}, {}, {}, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&box, &event);
    EXPECT_EQ(box.value(), focused ? 1 : 0);
  }
}

TEST(QtHelpersTest, CommaAndPointAreTheDecimalPoint) {
  for (const QLocale& locale : {QLocale::c(), QLocale(QLocale::German)})
    for (const char* typed : {"2.5", "2,5"}) {
      QDoubleSpinBox box;
      box.setLocale(locale);
      QtHelpers::takeCommaAsPoint(box);
      box.selectAll();
      QTest::keyClicks(&box, typed);
      EXPECT_EQ(box.value(), 2.5) << typed << " " << locale.name().toStdString();
    }
}

TEST(QtHelpersTest, MnemonicsAreFreeLetters) {
  QString taken = "ad";
  const struct {
    const char *text, *marked;
  } cases[] = {{"Dynamic range", "Dynamic &range"},
               {"Radius", "Rad&ius"},
               {"I/Q", "I/&Q"},
               {"Ad q", "Ad q"},
               {"10 %", "10 %"},
               {"A & B", "A && &B"}};
  for (const auto& c : cases)
    EXPECT_EQ(QtHelpers::withMnemonic(c.text, taken).toStdString(), c.marked);
  for (const auto& [text, marked] : {std::pair("2D", "&2D"), std::pair("2 D", "2 D")})
    EXPECT_EQ(QtHelpers::withMnemonic(text, taken, true).toStdString(), marked);
}

TEST(DefaultControllerDecoratorTest, ShowsHowARunGoesAndGivesThePanelBack) {
  QLabel panel("panel");
  std::vector<std::string> told;
  {
    DefaultControllerDecorator decorator(&panel, "Log Compression");
    auto* const compute = decorator.findChild<QPushButton*>("computeButton");
    auto* const cancel = decorator.findChild<QPushButton*>("cancelButton");
    auto* const bar = decorator.findChild<QProgressBar*>("progressBar");
    auto* const message = decorator.findChild<QLabel*>("messageLabel");
    using Decorator = DefaultControllerDecorator;
    QObject::connect(&decorator, &Decorator::aboutToCompute, [&] { told.push_back("about to"); });
    QObject::connect(&decorator, &Decorator::computeRequested, [&] { told.push_back("compute"); });
    QObject::connect(&decorator, &Decorator::cancelRequested, [&] { told.push_back("cancel"); });
    QObject::connect(&decorator, &Decorator::titleChanged, [&](const QString& t) { told.push_back(t.toStdString()); });
    decorator.show();
    QApplication::setActiveWindow(&decorator);

    QTest::keyClick(compute, Qt::Key_Space);
    QTest::mouseClick(cancel, Qt::LeftButton); // there is nothing to cancel
    decorator.showMessage("Failed");
    EXPECT_TRUE(message->isVisible());
    decorator.showProgress("Filtering", 2, 0);
    EXPECT_FALSE(message->isVisible()) << "what was said of the last run";
    EXPECT_TRUE(bar->isVisible() && bar->maximum() == 0) << "busy";
    QTest::mouseClick(cancel, Qt::LeftButton);
    decorator.showProgress("Filtering", 2, 3);
    EXPECT_EQ(bar->value(), 2);
    decorator.hideProgress();
    EXPECT_FALSE(bar->isVisible() || cancel->isEnabled());

    decorator.setTitleOverride("Stream: Log Compression");
    decorator.setTitleOverride("Stream: Log Compression");
    decorator.setTitleOverride("");
    decorator.hideAlgorithmButtons();
    decorator.showProgress("Filtering", 1, 3);
    EXPECT_FALSE(compute->isVisible() || cancel->isVisible());
  }
  EXPECT_EQ(told,
            (std::vector<std::string>{"about to", "compute", "cancel", "Stream: Log Compression", "Log Compression"}));
  EXPECT_EQ(panel.parent(), nullptr);
  auto inner = std::make_unique<QLabel>("first to go");
  const DefaultControllerDecorator decorator(inner.get(), "");
  inner.reset();
}

} // namespace
} // namespace Kelvaris
