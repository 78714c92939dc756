#pragma once

#include <QImage>
#include <QPoint>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class QMainWindow;

namespace Kelvaris::Tests {

/// Chooses an entry of the window's menus with mouse and arrow keys, for example {"Algorithms", "Ultrasound",
/// "Beamforming"}; texts are without '&'. Fails the test for one that isn't there or is disabled.
void chooseFromMenu(QMainWindow& window, const QStringList& path);

/// What the X server shows, all windows.
QImage screenshot();

/// Where the opaque pixels of `part` stand in `whole`, colour by colour; nothing if they stand nowhere.
std::optional<QPoint> findPicture(const QImage& whole, const QImage& part);

/// Runs the event loop until the condition holds, for half a minute at most. False if it never did.
bool waitUntil(const std::function<bool()>& condition);

} // namespace Kelvaris::Tests
