#pragma once

#include <functional>
#include <string>

class QWidget;

namespace Kelvaris {

class ParameterBase;

/// A widget for the value of one parameter, with texts as `Properties` hold them.
struct ParameterEditor {
  /// Named "editor_<key>". A check box, spin box, NumberBox, combo box or line edit; for a 2-vector a widget with two
  /// spin boxes, named "editor_<key>_0" and "_1".
  QWidget* widget;
  /// Shows a text without calling `edited`. Any value is shown as it is, also one that a user couldn't enter.
  std::function<void(const std::string&)> show;
  /// Ends what is being typed, as leaving the widget does.
  std::function<void()> finish;
};

/// Makes the editor that suits the parameter's type and attributes: "suffix" (the unit), "decimals", "min", "max",
/// "step", "values". What it shows is set by `show` alone. `edited` is called with the new text when the user has
/// changed it: at once for a click or a step, at the end of typing (Enter, or leaving the widget) otherwise.
ParameterEditor makeParameterEditor(const ParameterBase& parameter, QWidget* parent,
                                    std::function<void(const std::string&)> edited);

} // namespace Kelvaris
