#pragma once

#include "Lib/AlgorithmController.h"
#include "Lib/Data.h"

#include <memory>

class QUndoStack;

namespace Kelvaris {

class Algorithm;

/// What controllers ask of the window that shows them. For the main thread.
class MainWindow {
public:
  virtual ~MainWindow() = default;

  /// Shows the panel of a controller that is a `Controller`, within a DefaultControllerDecorator, and calls its init().
  /// The window owns it from then on. Returns null, with a logged error, for one that has no panel. If init() throws,
  /// the panel is gone again and the exception passes on.
  virtual AlgorithmController* addController(std::unique_ptr<AlgorithmController> controller) = 0;
  /// Takes the panel out of the window and hands the controller back; null if it isn't shown here.
  virtual std::unique_ptr<AlgorithmController> removeController(AlgorithmController* controller) = 0;

  /// Puts data on the data list, which owns them from then on. `producer` is the algorithm whose output they are.
  virtual void addData(OwningDataList data, Algorithm& producer) = 0;

  /// Where forms put changes that the user can take back; null if there is no such thing.
  virtual QUndoStack* undoStack() { return nullptr; }
};

} // namespace Kelvaris
