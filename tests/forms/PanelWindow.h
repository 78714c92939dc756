#pragma once

#include "Gui/Controller.h"
#include "Gui/DefaultControllerDecorator.h"
#include "Gui/MainWindow.h"

#include <QString>
#include <QUndoStack>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace Kelvaris::Tests {

/// A window that shows panels, each in a window of its own, and collects data.
class PanelWindow : public MainWindow {
public:
  ~PanelWindow() override {
    while (!m_panels.empty())
      removeController(m_panels.front().controller.get());
  }

  AlgorithmController* addController(std::unique_ptr<AlgorithmController> added) override {
    auto& controller = dynamic_cast<Controller&>(*added);
    Panel& panel = m_panels.emplace_back();
    panel.controller = std::move(added);
    panel.decorator = std::make_unique<DefaultControllerDecorator>(controller.widget(), "panel");
    panel.decorator->show();
    controller.setMainWindow(this);
    controller.setDefaultDecorator(panel.decorator.get());
    AlgorithmController* const result = panel.controller.get();
    try {
      controller.init();
    } catch (...) {
      removeController(result);
      throw;
    }
    return result;
  }
  std::unique_ptr<AlgorithmController> removeController(AlgorithmController* removed) override {
    const auto found = std::find_if(m_panels.begin(), m_panels.end(),
                                    [&](const Panel& panel) { return panel.controller.get() == removed; });
    if (found == m_panels.end()) return nullptr;
    Panel panel = std::move(*found);
    m_panels.erase(found);
    auto& controller = dynamic_cast<Controller&>(*panel.controller);
    controller.setMainWindow(nullptr);
    controller.setDefaultDecorator(nullptr);
    return std::move(panel.controller);
  }
  void addData(OwningDataList added, Algorithm&) override { data.push_back(std::move(added)); }
  QUndoStack* undoStack() override { return &stack; }

  std::size_t numPanels() const { return m_panels.size(); }
  AlgorithmController& controller(std::size_t i) const { return *m_panels.at(i).controller; }
  DefaultControllerDecorator& decorator(std::size_t i) const { return *m_panels.at(i).decorator; }

  std::vector<OwningDataList> data;
  QUndoStack stack;

private:
  struct Panel {
    std::unique_ptr<AlgorithmController> controller;
    std::unique_ptr<DefaultControllerDecorator> decorator; ///< gives the panel back before the controller goes
  };
  std::vector<Panel> m_panels;
};

} // namespace Kelvaris::Tests
