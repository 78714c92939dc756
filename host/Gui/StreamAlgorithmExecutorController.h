#pragma once

#include "Core/Signal.h"
#include "Gui/StreamControllerBase.h"
#include "Stream/StreamAlgorithmExecutor.h"

#include <memory>

class QLabel;
class QVBoxLayout;

namespace Kelvaris {

/// The panel of an algorithm that works on a stream: the algorithm's own panel, once the executor has created the
/// algorithm, which is with the first emission that it works on.
class StreamAlgorithmExecutorController : public StreamControllerBase {
  Q_OBJECT

public:
  /// The executor must outlive the panel. Throws as StreamControllerBase does.
  explicit StreamAlgorithmExecutorController(StreamAlgorithmExecutor* executor);
  ~StreamAlgorithmExecutorController() override;

  /// Has the executor listen to its input, too.
  void init() override;
  void setMainWindow(MainWindow* window) override;

protected:
  bool needsCompute() const override { return !m_isListening; }

private:
  void showAlgorithm();

  StreamAlgorithmExecutor* m_executor;
  bool m_isListening = false;
  QVBoxLayout* m_layout;
  QLabel* m_waitingLabel;
  std::unique_ptr<AlgorithmController> m_settings; ///< of the algorithm; null until there is one
  BlockingConnection m_outputConnection;           ///< last: it ends first
};

} // namespace Kelvaris
