#include "gui/SingleImageStreamAlgorithmExecutorController.h"

#include "Gui/AfterLongWork.h"
#include "Gui/DefaultControllerDecorator.h"
#include "Gui/MainWindow.h"
#include "Lib/FactoryRegistry.h"
#include "gui/Editing.h"
#include "ui_SingleImageStreamAlgorithmExecutorController.h"

#include <utility>

namespace Kelvaris::US {
namespace {

using QtHelpers::setSilent;

constexpr const char* kCategory = "SingleImageStreamAlgorithmExecutorController";

} // namespace

SingleImageStreamAlgorithmExecutorController::SingleImageStreamAlgorithmExecutorController(
    SingleImageStreamAlgorithmExecutor* executor)
    : StreamControllerBase(executor),
      m_ui(std::make_unique<Ui_SingleImageStreamAlgorithmExecutorController>()),
      m_executor(executor) {
  m_ui->setupUi(this);
  arrange(*this);
  updateGUI();
  const auto postUpdate = [this] {
    QMetaObject::invokeMethod(this, &SingleImageStreamAlgorithmExecutorController::updateGUI, Qt::QueuedConnection);
  };
  m_parameterConnections = {
      executor->forceBlocking.changed.connectBlocking(postUpdate),
      executor->processOnGpu.changed.connectBlocking(postUpdate),
      executor->queueSize.changed.connectBlocking(postUpdate),
      executor->imageIndex.changed.connectBlocking(postUpdate),
  };
  m_executorGoneConnection = executor->goneSignal.connectBlocking([this] { onExecutorGone(); });
}

SingleImageStreamAlgorithmExecutorController::~SingleImageStreamAlgorithmExecutorController() {
  detach(*this);
  guarded(kCategory, [this] { removeDependentController(); });
}

void SingleImageStreamAlgorithmExecutorController::init() {
  if (!m_executor) return;
  updateGUI();
  connect(m_ui->spinBox_queueSize, qOverload<int>(&QSpinBox::valueChanged), this,
          &SingleImageStreamAlgorithmExecutorController::onQueueSizeChanged, Qt::UniqueConnection);
  connect(m_ui->spinBox_imageIndex, qOverload<int>(&QSpinBox::valueChanged), this,
          &SingleImageStreamAlgorithmExecutorController::onImageIndexChanged, Qt::UniqueConnection);
  connect(m_ui->checkBox_gpu, &QCheckBox::toggled, this,
          &SingleImageStreamAlgorithmExecutorController::onRunOnGPUChanged, Qt::UniqueConnection);
  connect(m_ui->checkBox_blocking, &QCheckBox::toggled, this,
          &SingleImageStreamAlgorithmExecutorController::onBlockingChanged, Qt::UniqueConnection);
  connect(m_ui->pushButton_start, &QPushButton::clicked, this, &SingleImageStreamAlgorithmExecutorController::onStart,
          Qt::UniqueConnection);
  m_outputChangedConnection = m_executor->outputChanged.connectBlocking([this] {
    QMetaObject::invokeMethod(
        this, [this] { afterLongWork(this, [this] { onOutputChanged(); }); }, Qt::QueuedConnection);
  });
  if (m_executor->isOutputTaken() && m_executor->streamAlgorithm()) onOutputChanged();
}

void SingleImageStreamAlgorithmExecutorController::onStart() {
  guarded(kCategory, [this] {
    if (!m_executor) return;
    const std::string name = m_ui->comboBox_alg->currentText().toStdString();
    if (name.empty()) {
      Log::error(kCategory, "There is no algorithm to start: choose one, or type the name of a registered one");
      return;
    }
    m_executor->setStreamAlgorithmName(name);
    StreamControllerBase::init();
    if (m_executor->streamAlgorithm()) onOutputChanged(); // it came before this panel listened
  });
}

void SingleImageStreamAlgorithmExecutorController::onOutputChanged() {
  guarded(kCategory, [this] {
    if (!m_executor) return;
    for (QWidget* choice : std::initializer_list<QWidget*>{m_ui->label_alg, m_ui->comboBox_alg, m_ui->pushButton_start})
      choice->hide();
    createDependentController();
    StreamControllerBase::init();
  });
}

void SingleImageStreamAlgorithmExecutorController::createDependentController() {
  removeDependentController();
  MainWindow* const window = mainWindow();
  Algorithm* const algorithm = m_executor->streamAlgorithm();
  if (!window || !algorithm) return;
  auto created = FactoryRegistry::get().createAlgorithmController(algorithm);
  if (!created) return;
  m_dependentController = window->addController(std::move(created));
  auto* const controller = dynamic_cast<Controller*>(m_dependentController);
  if (!controller) return;
  m_dependentWindow = window;
  m_dependentPanel = controller->widget();
  if (DefaultControllerDecorator* const decorator = controller->defaultDecorator()) {
    decorator->hideAlgorithmButtons();
    decorator->setTitleOverride(tr("Stream: ") + QString::fromStdString(algorithm->factoryInfo().displayName));
  }
}

void SingleImageStreamAlgorithmExecutorController::removeDependentController() {
  // The window may have closed it, or may be gone with it.
  if (m_dependentPanel) m_dependentWindow->removeController(m_dependentController);
  m_dependentPanel.clear();
}

void SingleImageStreamAlgorithmExecutorController::onExecutorGone() {
  guarded(kCategory, [this] { removeDependentController(); });
  m_executor = nullptr;
  forgetAlgorithm();
  setEnabled(false);
}

void SingleImageStreamAlgorithmExecutorController::onQueueSizeChanged(int size) {
  if (m_executor) m_executor->queueSize = size;
}

void SingleImageStreamAlgorithmExecutorController::onImageIndexChanged(int index) {
  if (m_executor) m_executor->imageIndex = index;
}

void SingleImageStreamAlgorithmExecutorController::onRunOnGPUChanged(bool onGpu) {
  if (m_executor) m_executor->processOnGpu = onGpu;
}

void SingleImageStreamAlgorithmExecutorController::onBlockingChanged(bool blocking) {
  if (m_executor) m_executor->forceBlocking = blocking;
}

void SingleImageStreamAlgorithmExecutorController::updateGUI() {
  if (!m_executor) return;
  setSilent(*m_ui->spinBox_queueSize, &QSpinBox::setValue, m_executor->queueSize.current());
  setSilent(*m_ui->spinBox_imageIndex, &QSpinBox::setValue, m_executor->imageIndex.current());
  setSilent(*m_ui->checkBox_gpu, &QCheckBox::setChecked, m_executor->processOnGpu.current());
  setSilent(*m_ui->checkBox_blocking, &QCheckBox::setChecked, m_executor->forceBlocking.current());
  if (m_ui->comboBox_alg->isHidden()) return; // the name would be waited for while an image is in progress
  const QString name = QString::fromStdString(m_executor->streamAlgorithmName());
  if (name.isEmpty()) return;
  const QSignalBlocker blocker(m_ui->comboBox_alg);
  if (m_ui->comboBox_alg->findText(name) < 0) m_ui->comboBox_alg->addItem(name);
  m_ui->comboBox_alg->setCurrentIndex(m_ui->comboBox_alg->findText(name));
}

} // namespace Kelvaris::US
