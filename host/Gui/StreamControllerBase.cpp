#include "Gui/StreamControllerBase.h"

#include "Core/Log.h"
#include "Gui/MainWindow.h"
#include "Gui/QtHelpers.h"
#include "Gui/StreamControls.h"

#include <QFormLayout>
#include <QGridLayout>
#include <QPushButton>
#include <QVBoxLayout>

#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace Kelvaris {
namespace {

/// The last error that was logged while this object lives, on any thread.
class LastError {
public:
  LastError()
      : m_sink(Log::addSink([state = m_state](const Log::Entry& entry) {
          const std::scoped_lock lock(state->mutex);
          if (entry.level >= Log::Error) state->message = entry.message;
        })) {}
  ~LastError() { Log::removeSink(m_sink); }
  LastError(const LastError&) = delete;
  LastError& operator=(const LastError&) = delete;

  std::string message() const {
    const std::scoped_lock lock(m_state->mutex);
    return m_state->message;
  }

private:
  struct State {
    std::mutex mutex;
    std::string message;
  };
  std::shared_ptr<State> m_state = std::make_shared<State>(); ///< a sink may still run when it has been removed
  int m_sink;
};

} // namespace

StreamControllerBase::StreamControllerBase(StreamAlgorithm* algorithm)
    : QWidget(QtHelpers::noParent()), AlgorithmController(algorithm), m_algorithm(algorithm) {}

void StreamControllerBase::init() {
  const bool computes = needsCompute();
  m_failure = computes ? compute() : QString();
  addControls();
  m_controls->setStream(m_algorithm->stream());
  if (computes) m_controls->showMessage(m_failure);
  if (!mainWindow()) return;
  OwningDataList output = m_algorithm->takeOutput();
  if (!output.empty()) mainWindow()->addData(std::move(output), *m_algorithm);
}

QString StreamControllerBase::compute() {
  const LastError error;
  try {
    m_algorithm->compute();
  } catch (const std::exception& exception) {
    const std::string& name = m_algorithm->factoryInfo().displayName;
    Log::error("StreamControllerBase", "{} failed: {}", name.empty() ? "The algorithm" : name, exception.what());
  }
  if (m_algorithm->status() == Algorithm::Success && m_algorithm->stream()) return {};
  const std::string reason = error.message();
  return reason.empty() ? tr("There is no stream: the algorithm ended with status %1.").arg(m_algorithm->status())
                        : QString::fromStdString(reason);
}

void StreamControllerBase::addControls() {
  if (m_controls) return;
  QWidget* last = nullptr; // of the panel in the order of the Tab key
  for (QWidget* next = nextInFocusChain(); next != this; next = next->nextInFocusChain())
    if (isAncestorOf(next) && (next->focusPolicy() & Qt::TabFocus)) last = next;
  m_controls = &QtHelpers::make<StreamControls>(this, m_hasStartStop);
  if (!m_hasControls) m_controls->showMessagesOnly();
  if (auto* const form = qobject_cast<QFormLayout*>(layout()))
    form->addRow(m_controls);
  else if (auto* const grid = qobject_cast<QGridLayout*>(layout()))
    grid->addWidget(m_controls, grid->rowCount(), 0, 1, -1);
  else if (layout())
    layout()->addWidget(m_controls);
  else
    QtHelpers::make<QVBoxLayout>(this).addWidget(m_controls);
  // They were made when the panel was in its window already, and stand behind all of that.
  for (QPushButton* button : m_controls->findChildren<QPushButton*>()) {
    if (last) setTabOrder(last, button);
    last = button;
  }
}

void StreamControllerBase::configure(const Properties* properties) {
  if (m_algorithm) m_algorithm->configure(properties);
}

void StreamControllerBase::configuration(Properties* properties) const {
  if (m_algorithm) m_algorithm->configuration(properties);
}

} // namespace Kelvaris
