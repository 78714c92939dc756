#pragma once

#include "Core/Signal.h"
#include "Gui/StreamControllerBase.h"
#include "streaming/SingleImageStreamAlgorithmExecutor.h"

#include <QPointer>

#include <array>
#include <memory>

namespace Kelvaris::US {

class Ui_SingleImageStreamAlgorithmExecutorController;

/// The panel of an executor. The user names an algorithm and starts it; the output then goes on the window's data list.
/// Once the executor has created the algorithm, the choice gives way to the algorithm's own controller, as a panel
/// of its own in the same window: the dependent controller, which goes before the algorithm and before this panel.
///
/// The executor must go away on the main thread.
class SingleImageStreamAlgorithmExecutorController : public StreamControllerBase {
  Q_OBJECT

public:
  explicit SingleImageStreamAlgorithmExecutorController(SingleImageStreamAlgorithmExecutor* executor);
  ~SingleImageStreamAlgorithmExecutorController() override;

  /// Makes no output by itself, unless it has been started before.
  void init() override;
  AlgorithmController* dependentController() const override {
    return m_dependentPanel ? m_dependentController : nullptr;
  }

private Q_SLOTS:
  void onStart();
  void onOutputChanged();
  void onQueueSizeChanged(int size);
  void onImageIndexChanged(int index);
  void onRunOnGPUChanged(bool onGpu);
  void onBlockingChanged(bool blocking);
  void updateGUI();

private:
  void createDependentController();
  void removeDependentController();
  void onExecutorGone();

  std::unique_ptr<Ui_SingleImageStreamAlgorithmExecutorController> m_ui;
  SingleImageStreamAlgorithmExecutor* m_executor; ///< null when it has gone
  AlgorithmController* m_dependentController = nullptr;
  QPointer<QWidget> m_dependentPanel;           ///< null where the dependent controller has gone
  MainWindow* m_dependentWindow = nullptr;      ///< owns the dependent controller
  BlockingConnection m_outputChangedConnection; ///< the connections last: they end first
  std::array<BlockingConnection, 4> m_parameterConnections;
  BlockingConnection m_executorGoneConnection;
};

} // namespace Kelvaris::US
