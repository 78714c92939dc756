#pragma once

class QWidget;

namespace Kelvaris::Viewer {

/// Gives the keyboard to the first field within `part`, in the order of the Tab key. False if none takes it.
bool focusFirst(QWidget& part);

} // namespace Kelvaris::Viewer
