#include "Gui/StreamAlgorithmExecutorController.h"

#include "Core/Log.h"
#include "Gui/AfterLongWork.h"
#include "Gui/QtHelpers.h"
#include "Lib/FactoryRegistry.h"

#include <QLabel>
#include <QVBoxLayout>

#include <exception>

namespace Kelvaris {

StreamAlgorithmExecutorController::StreamAlgorithmExecutorController(StreamAlgorithmExecutor* executor)
    : StreamControllerBase(executor), m_executor(executor) {
  leaveOutControls(); // the output runs as the input does
  setWindowTitle(QString::fromStdString(executor->factoryInfo().displayName));
  m_layout = &QtHelpers::make<QVBoxLayout>(this);
  m_layout->setContentsMargins(0, 0, 0, 0);
  m_waitingLabel = &QtHelpers::make<QLabel>(this, tr("Settings appear with the first image of the stream."));
  m_waitingLabel->setObjectName("waitingLabel");
  m_waitingLabel->setWordWrap(true);
  m_layout->addWidget(m_waitingLabel);
  m_outputConnection = executor->outputChanged.connectBlocking([this] { // on the input's thread
    QMetaObject::invokeMethod(
        this, [this] { afterLongWork(this, [this] { showAlgorithm(); }); }, Qt::QueuedConnection);
  });
  showAlgorithm();
}

StreamAlgorithmExecutorController::~StreamAlgorithmExecutorController() = default;

void StreamAlgorithmExecutorController::init() {
  StreamControllerBase::init();
  m_isListening = m_executor->status() == Algorithm::Success;
}

void StreamAlgorithmExecutorController::setMainWindow(MainWindow* window) {
  StreamControllerBase::setMainWindow(window);
  if (auto* const settings = dynamic_cast<Controller*>(m_settings.get())) settings->setMainWindow(window);
}

void StreamAlgorithmExecutorController::showAlgorithm() {
  Algorithm* const algorithm = m_executor->streamAlgorithm();
  if (m_settings || !algorithm) return;
  try {
    m_settings = FactoryRegistry::get().createAlgorithmController(algorithm);
  } catch (const std::exception& error) {
    Log::error("StreamAlgorithmExecutorController", "There are no settings of {} to show: {}",
               algorithm->factoryInfo().displayName, error.what());
  }
  auto* const settings = dynamic_cast<Controller*>(m_settings.get());
  if (!settings || !settings->widget()) return;
  m_waitingLabel->hide();
  m_layout->insertWidget(0, settings->widget());
  settings->widget()->show();
  settings->setMainWindow(mainWindow());
  settings->init();
}

} // namespace Kelvaris
