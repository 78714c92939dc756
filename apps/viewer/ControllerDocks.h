#pragma once

#include "Lib/AlgorithmController.h"

#include <QObject>
#include <QString>

#include <memory>
#include <vector>

class QDockWidget;
class QMainWindow;
class QMenu;

namespace Kelvaris {
class DefaultControllerDecorator;
class MainWindow;
} // namespace Kelvaris

namespace Kelvaris::Viewer {

/// The panels of controllers, each in a dock of its own at the right of the window, as tabs of one place. A dock that
/// the user closes is hidden; its controller stays.
class ControllerDocks : public QObject {
  Q_OBJECT

public:
  /// The window gets the docks; the controllers are told of `host`. Both must outlive this object.
  ControllerDocks(QMainWindow& window, MainWindow& host);
  ~ControllerDocks() override;

  /// As MainWindow::addController() and removeController().
  AlgorithmController* add(std::unique_ptr<AlgorithmController> controller);
  std::unique_ptr<AlgorithmController> remove(AlgorithmController* controller);
  /// Destroys the controllers of the algorithm, which must still be there.
  void removeOf(const Algorithm& algorithm);

  /// Brings the panel of the algorithm before the others; with `focus`, its first field takes the keyboard. False if
  /// there is none.
  bool reveal(const Algorithm& algorithm, bool focus);
  /// How far a run of the algorithm is, and how it ended. `done`: there is a result, so that a form that wants to may
  /// close.
  void showProgress(const Algorithm& algorithm, const QString& text, int step, int steps);
  void showEnd(const Algorithm& algorithm, const QString& error, bool done);
  /// The panel that is before the others; null if none is in sight.
  QWidget* front() const;
  /// Adds an entry for each dock, to show and to hide it.
  void addActions(QMenu& menu) const;

Q_SIGNALS:
  // Of a panel's buttons.
  void computeRequested(Algorithm* algorithm);
  void cancelRequested(Algorithm* algorithm);

private:
  struct Entry {
    std::unique_ptr<AlgorithmController> controller;
    DefaultControllerDecorator* decorator; ///< child of the dock
    QDockWidget* dock;                     ///< child of the window
  };
  const Entry* find(const Algorithm& algorithm) const;
  std::unique_ptr<AlgorithmController> undock(AlgorithmController* controller);

  QMainWindow& m_window;
  MainWindow& m_host;
  std::vector<Entry> m_entries;
  int m_count = 0; ///< of all docks there have been, for their object names
};

} // namespace Kelvaris::Viewer
