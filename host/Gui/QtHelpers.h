#pragma once

#include <QSignalBlocker>
#include <QString>

#include <memory>
#include <utility>

class QDoubleSpinBox;
class QGroupBox;
class QWidget;

/// What forms do again and again.
namespace Kelvaris::QtHelpers {

/// No parent, for the constructor of a widget that would otherwise end the process where there is no QApplication.
/// Throws std::runtime_error there, saying that forms need one, and on any thread but the application's.
QWidget* noParent();

/// A new object that `parent`, not null, owns.
template <typename Object, typename Parent, typename... Args> Object& make(Parent* parent, Args&&... args) {
  return *std::make_unique<Object>(std::forward<Args>(args)..., parent).release();
}

/// Calls `set` on the widget, for example `setSilent(*box, &QSpinBox::setValue, 3)`, while it emits no signals.
template <typename Widget, typename Class, typename... Parameters, typename... Values>
void setSilent(Widget& widget, void (Class::*set)(Parameters...), Values&&... values) {
  const QSignalBlocker blocker(&widget);
  (widget.*set)(std::forward<Values>(values)...);
}

/// Makes the title of the group box a switch, for mouse and keyboard, that shows and hides what is in the box. Hidden
/// contents are disabled; shown again, each is enabled and visible as it would be without the switch.
void makeExpandable(QGroupBox& box, bool expanded = true);

/// Leaves the mouse wheel to what the widget lies in until the widget has the focus, so that scrolling over a spin box
/// or a combo box changes nothing.
void ignoreWheelWithoutFocus(QWidget& widget);

/// Comma and point, typed into the box, are both its locale's decimal point: otherwise one of them separates
/// thousands, and "2,5" becomes 25.
void takeCommaAsPoint(QDoubleSpinBox& box);

/// `text`, each '&' in it doubled, with '&' before a letter, or with `digits` a digit, that isn't among `taken`, and
/// added there: the first of a word where one is free. Without a mnemonic where none is free.
QString withMnemonic(const QString& text, QString& taken, bool digits = false);

} // namespace Kelvaris::QtHelpers
