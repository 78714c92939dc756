#pragma once

#include "Gui/MainWindow.h"

#include <QUndoStack>

#include <memory>
#include <utility>
#include <vector>

namespace Kelvaris::Tests {

/// A window that shows nothing and remembers what it is told.
struct FakeWindow : MainWindow {
  AlgorithmController* addController(std::unique_ptr<AlgorithmController>) override { return nullptr; }
  std::unique_ptr<AlgorithmController> removeController(AlgorithmController*) override { return nullptr; }
  void addData(OwningDataList data, Algorithm&) override { lists.push_back(std::move(data)); }
  QUndoStack* undoStack() override { return &stack; }

  std::vector<OwningDataList> lists;
  QUndoStack stack;
};

} // namespace Kelvaris::Tests
