#include "Gui/StreamControls.h"

#include "Core/Log.h"
#include "Gui/QtHelpers.h"
#include "Stream/Stream.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include <chrono>
#include <exception>
#include <mutex>
#include <utility>

namespace Kelvaris {
namespace {

constexpr std::chrono::milliseconds kPollInterval{50};

QString inWords(Stream::State state) {
  switch (state) {
  case Stream::State::Closed:
    return StreamControls::tr("Not started");
  case Stream::State::Open:
    return StreamControls::tr("Stopped");
  case Stream::State::Running:
    return StreamControls::tr("Running");
  case Stream::State::Paused:
    return StreamControls::tr("Paused");
  }
  return {};
}

} // namespace

StreamControls::StreamControls(bool hasStartStop, QWidget* parent) : QWidget(parent) {
  auto& layout = QtHelpers::make<QVBoxLayout>(this);
  layout.setContentsMargins(0, 0, 0, 0);
  m_row = &QtHelpers::make<QWidget>(this);
  layout.addWidget(m_row);
  auto& controls = QtHelpers::make<QHBoxLayout>(m_row);
  controls.setContentsMargins(0, 0, 0, 0);
  m_state = &QtHelpers::make<QLabel>(m_row);
  m_state->setObjectName("streamStateLabel");
  m_state->setToolTip(tr("What the stream does at present"));
  controls.addWidget(m_state, 1);
  const auto addButton = [&](const char* name, void (StreamControls::*slot)()) {
    auto& button = QtHelpers::make<QPushButton>(m_row);
    button.setObjectName(name);
    connect(&button, &QPushButton::clicked, this, slot);
    controls.addWidget(&button);
    return &button;
  };
  m_pauseButton = addButton("pauseButton", &StreamControls::onPause);
  m_startStopButton = addButton("startStopButton", &StreamControls::onStartStop);
  m_startStopButton->setVisible(hasStartStop);
  m_message = &QtHelpers::make<QLabel>(this);
  m_message->setObjectName("streamMessageLabel");
  m_message->setWordWrap(true);
  m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);
  layout.addWidget(m_message);
  m_timer = &QtHelpers::make<QTimer>(this);
  m_timer->setInterval(kPollInterval);
  connect(m_timer, &QTimer::timeout, this, &StreamControls::checkCommands);
  showMessage({});
  updateGUI();
}

StreamControls::~StreamControls() = default;

void StreamControls::setStream(Stream* stream) {
  {
    const std::scoped_lock lock(m_mutex);
    if (stream == m_stream) return;
  }
  // Their slots take the mutex.
  m_stateConnection.disconnect();
  m_closedConnection.disconnect();
  const auto post = [this] { QMetaObject::invokeMethod(this, &StreamControls::updateGUI, Qt::QueuedConnection); };
  if (stream) {
    m_stateConnection = stream->stateChanged.connectBlocking([post](Stream::State) { post(); });
    m_closedConnection = stream->closedSignal.connectBlocking([this, post] {
      const std::scoped_lock lock(m_mutex);
      m_stream = nullptr;
      m_hasEnded = true;
      post();
    });
  }
  {
    const std::scoped_lock lock(m_mutex);
    m_stream = stream;
    m_hasEnded = false;
  }
  m_commands.clear();
  m_shownState = -1;
  updateGUI();
}

void StreamControls::showMessage(const QString& message) {
  m_message->setText(message);
  m_message->setVisible(!message.isEmpty());
}

void StreamControls::updateGUI() {
  const std::scoped_lock lock(m_mutex);
  const Stream::State state = m_stream ? m_stream->state() : Stream::State::Closed;
  const bool isPaused = state == Stream::State::Paused;
  const bool isActive = isPaused || state == Stream::State::Running;
  m_state->setText(m_stream ? inWords(state) : m_hasEnded ? tr("The stream has ended") : tr("No stream"));
  m_startStopButton->setEnabled(m_stream);
  m_startStopButton->setText(isActive ? tr("Stop") : tr("Start"));
  m_startStopButton->setToolTip(isActive ? tr("Stop the stream") : tr("Start the stream"));
  m_pauseButton->setVisible(m_stream && m_stream->supportsPausing());
  m_pauseButton->setEnabled(isActive);
  m_pauseButton->setText(isPaused ? tr("Resume") : tr("Pause"));
  m_pauseButton->setToolTip(isPaused ? tr("Let the stream go on") : tr("Hold the stream where it is"));
  if (m_shownState >= 0 && m_shownState != static_cast<int>(state)) showMessage({});
  m_shownState = static_cast<int>(state);
}

void StreamControls::command(std::shared_future<bool> (Stream::*order)()) {
  const std::scoped_lock lock(m_mutex);
  if (!m_stream) return;
  m_commands.push_back((m_stream->*order)());
  m_timer->start();
}

void StreamControls::onStartStop() {
  const auto state = [this] {
    const std::scoped_lock lock(m_mutex);
    return m_stream ? m_stream->state() : Stream::State::Closed;
  }();
  showMessage({});
  if (state == Stream::State::Running || state == Stream::State::Paused) {
    command(&Stream::stopAsync);
    return;
  }
  if (state == Stream::State::Closed) command(&Stream::openAsync);
  command(&Stream::startAsync);
}

void StreamControls::onPause() {
  showMessage({});
  command(m_shownState == static_cast<int>(Stream::State::Paused) ? &Stream::resumeAsync : &Stream::pauseAsync);
}

void StreamControls::checkCommands() {
  const auto isDone = [](const std::shared_future<bool>& result) {
    return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  };
  while (!m_commands.empty() && isDone(m_commands.front())) {
    const std::shared_future<bool> result = std::move(m_commands.front());
    m_commands.erase(m_commands.begin());
    QString reason;
    try {
      if (!result.get()) reason = tr("The stream can't do that now; the log says why.");
    } catch (const std::exception& error) {
      Log::error("StreamControls", "A command to the stream failed: {}", error.what());
      reason = QString::fromUtf8(error.what());
    }
    if (!reason.isEmpty()) {
      m_commands.clear(); // those after it fail because this one did
      showMessage(reason);
    }
  }
  if (m_commands.empty()) m_timer->stop();
}

} // namespace Kelvaris
