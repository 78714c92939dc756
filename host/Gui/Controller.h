#pragma once

class QWidget;

namespace Kelvaris {

class AlgorithmController;
class DefaultControllerDecorator;
class MainWindow;

/// A panel that a main window shows. For the main thread.
class Controller {
public:
  Controller() = default;
  virtual ~Controller();
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  /// The panel; it goes away with this object.
  virtual QWidget* widget() = 0;
  /// Called once the window shows the panel.
  virtual void init() {}
  /// A controller that this one has brought to the window and that is still there; null for none.
  virtual AlgorithmController* dependentController() const { return nullptr; }

  /// Null while no window shows the panel. The window sets it.
  MainWindow* mainWindow() const { return m_mainWindow; }
  virtual void setMainWindow(MainWindow* window) { m_mainWindow = window; }
  /// The frame around the panel; null if it has none. The window sets it.
  DefaultControllerDecorator* defaultDecorator() const { return m_decorator; }
  void setDefaultDecorator(DefaultControllerDecorator* decorator) { m_decorator = decorator; }

private:
  MainWindow* m_mainWindow = nullptr;
  DefaultControllerDecorator* m_decorator = nullptr;
};

} // namespace Kelvaris
