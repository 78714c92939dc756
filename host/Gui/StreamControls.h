#pragma once

#include "Core/Signal.h"

#include <QWidget>

#include <future>
#include <mutex>
#include <vector>

class QLabel;
class QPushButton;
class QTimer;

namespace Kelvaris {

class Stream;

/// What a user does with a running stream: its state in words, "Pause" where the stream supports pausing, and "Start"
/// and "Stop". Commands are posted to the stream and never waited for; what becomes of one that fails shows here. The
/// stream may change its state on any thread, and may go away while the widget shows it.
class StreamControls : public QWidget {
  Q_OBJECT

public:
  /// Without `hasStartStop`, panels start and stop the stream with buttons of their own.
  explicit StreamControls(bool hasStartStop, QWidget* parent = nullptr);
  ~StreamControls() override;

  void showMessagesOnly() { m_row->hide(); }
  /// Null: none. Harmless for the one that is shown already.
  void setStream(Stream* stream);
  /// Shows `message` below the state until the state changes or another stream comes; for what has failed.
  void showMessage(const QString& message);

private:
  void updateGUI();
  void command(std::shared_future<bool> (Stream::*order)());
  void onStartStop();
  void onPause();
  void checkCommands();

  std::mutex m_mutex;         ///< held while the stream is used: its end waits
  Stream* m_stream = nullptr; ///< null also when it has gone
  bool m_hasEnded = false;
  int m_shownState = -1;
  std::vector<std::shared_future<bool>> m_commands;
  QTimer* m_timer;
  QWidget* m_row; ///< all but the message
  QLabel *m_state, *m_message;
  QPushButton *m_pauseButton, *m_startStopButton;
  BlockingConnection m_stateConnection, m_closedConnection; ///< these two last: they end first
};

} // namespace Kelvaris
