#include "Gui/QtHelpers.h"

#include <QApplication>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QKeyEvent>
#include <QPointer>
#include <QProxyStyle>
#include <QStyleOption>
#include <QThread>
#include <QWidget>

#include <stdexcept>
#include <vector>

namespace Kelvaris::QtHelpers {
namespace {

/// Draws the check mark of a group box as an arrow: right for closed, down for open.
class ArrowStyle : public QProxyStyle {
public:
  explicit ArrowStyle(QObject* parent) { setParent(parent); }

  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override {
    if (element == PE_IndicatorCheckBox)
      element = option->state & State_On ? PE_IndicatorArrowDown : PE_IndicatorArrowRight;
    QProxyStyle::drawPrimitive(element, option, painter, widget);
  }
};

class WheelGuard : public QObject {
public:
  using QObject::QObject;

  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() != QEvent::Wheel || static_cast<QWidget*>(watched)->hasFocus()) return false;
    event->ignore();
    return true;
  }
};

class CommaGuard : public QObject {
public:
  using QObject::QObject;

  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() != QEvent::KeyPress) return false;
    const auto& key = static_cast<QKeyEvent&>(*event);
    const QString point = static_cast<QWidget*>(watched)->locale().decimalPoint();
    if ((key.text() != "," && key.text() != ".") || key.text() == point) return false;
    QKeyEvent typed(QEvent::KeyPress, point == "," ? Qt::Key_Comma : Qt::Key_Period, key.modifiers(), point);
    QCoreApplication::sendEvent(watched, &typed);
    return true;
  }
};

} // namespace

QWidget* noParent() {
  const auto* const application = qobject_cast<QApplication*>(QCoreApplication::instance());
  if (!application)
    throw std::runtime_error("Forms need a QApplication, and this process has none; make one before the first form");
  if (application->thread() != QThread::currentThread())
    throw std::runtime_error("Forms are for the thread of the QApplication; this is another one");
  return nullptr;
}

void makeExpandable(QGroupBox& box, bool expanded) {
  box.setCheckable(true);
  box.setChecked(true);
  box.setStyle(&make<ArrowStyle>(&box));
  // A checkable box enables and disables its contents by itself. Those that hide themselves stay hidden.
  const auto hidden = std::make_shared<std::vector<QPointer<QWidget>>>();
  QObject::connect(&box, &QGroupBox::toggled, &box, [&box, hidden](bool shown) {
    box.setFlat(!shown);
    if (shown) {
      for (const QPointer<QWidget>& widget : *hidden)
        if (widget) widget->show();
      hidden->clear();
      return;
    }
    for (QWidget* child : box.findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly))
      if (!child->isHidden()) {
        child->hide();
        hidden->emplace_back(child);
      }
  });
  box.setChecked(expanded);
}

void ignoreWheelWithoutFocus(QWidget& widget) {
  widget.setFocusPolicy(Qt::StrongFocus);
  widget.installEventFilter(&make<WheelGuard>(&widget));
}

void takeCommaAsPoint(QDoubleSpinBox& box) {
  box.installEventFilter(&make<CommaGuard>(&box));
}

QString withMnemonic(const QString& text, QString& taken, bool digits) {
  const QString escaped = QString(text).replace('&', "&&");
  for (const bool onlyInitials : {true, false})
    for (int i = 0; i < escaped.size(); ++i) {
      const QChar letter = escaped[i].toLower();
      if (!(letter.isLetter() || (digits && letter.isNumber())) || taken.contains(letter) ||
          (onlyInitials && i > 0 && escaped[i - 1].isLetterOrNumber()))
        continue;
      taken += letter;
      return QString(escaped).insert(i, '&');
    }
  return escaped;
}

} // namespace Kelvaris::QtHelpers
