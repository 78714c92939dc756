#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <functional>

namespace Kelvaris::Viewer {

/// Calls a function on the thread that made this object, when others ask for it: once for all requests that have come
/// since the last call, at most once an interval, and not in the middle of LongWork.
class CoalescedCall : public QObject {
  Q_OBJECT

public:
  CoalescedCall(std::function<void()> function, std::chrono::milliseconds interval);

  /// Thread-safe. The object must not end meanwhile.
  void request();

private:
  void arrive();
  void call();

  std::function<void()> m_function;
  std::chrono::milliseconds m_interval;
  std::atomic<bool> m_requested = false;
  QElapsedTimer m_sinceLast;
  QTimer m_later;
};

} // namespace Kelvaris::Viewer
