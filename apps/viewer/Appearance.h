#pragma once

class QApplication;

namespace Kelvaris::Viewer {

/// Light is what the desktop says; dark are colours of our own, for dim rooms.
void setDark(QApplication& application, bool dark);

} // namespace Kelvaris::Viewer
