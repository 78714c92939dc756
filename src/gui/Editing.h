#pragma once

#include "Core/Log.h"
#include "Core/Properties.h"
#include "Gui/QtHelpers.h"

#include <QDoubleSpinBox>
#include <QSpinBox>

#include <cmath>
#include <exception>

class QButtonGroup;

/// What the forms of this room have in common.
namespace Kelvaris::US {

/// The box silently takes the key's value in its own unit, of which `unit` is the size in the model's; as it is if the
/// key is missing or holds no finite number. A value beyond the box's range shows as the nearest, and stays in the
/// properties.
inline void showValue(const Properties& properties, const char* key, double unit, QDoubleSpinBox& box) {
  double value = 0.0;
  if (properties.param(key, value) && std::isfinite(value))
    QtHelpers::setSilent(box, &QDoubleSpinBox::setValue, value / unit);
}
inline void showValue(const Properties& properties, const char* key, QSpinBox& box) {
  int value = 0;
  if (properties.param(key, value)) QtHelpers::setSilent(box, &QSpinBox::setValue, value);
}

/// Makes the labels of all form layouts within the form equally wide, so that the fields stand in one column; lets
/// the mouse wheel scroll past the boxes; and takes a comma as a decimal point.
void arrange(QWidget& form);

/// Gives the checked button of the group the form's colours for what is selected, and the others those that they
/// inherit. To be called whenever another button is checked, and on the form's QEvent::PaletteChange.
void highlightChecked(const QButtonGroup& group, const QWidget& form);

/// The form takes part in the order of the Tab key as one, with `first` as its first widget.
void setFirstInTabOrder(QWidget& form, QWidget& first);

/// For the destructor of a form: its widgets, which outlive its members and may lose the focus on their way, no longer
/// tell it of changes.
void detach(QWidget& form);

/// Calls `action` for a slot, out of which no exception may go: it is logged as an error.
template <typename Action> void guarded(const char* category, Action&& action) {
  try {
    action();
  } catch (const std::exception& error) {
    Log::error(category, "{}", error.what());
  } catch (...) {
    Log::error(category, "An error that doesn't say what it is: it was thrown as something else than a std::exception");
  }
}

} // namespace Kelvaris::US
