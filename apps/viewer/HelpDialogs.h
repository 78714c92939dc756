#pragma once

class QWidget;

namespace Kelvaris::Viewer {

/// All shortcuts of the actions in the window's menus, by menu. Doesn't wait for the user.
void showShortcuts(QWidget& window);
/// What this program is, and what it computes on. Doesn't wait for the user.
void showAbout(QWidget& window);

} // namespace Kelvaris::Viewer
