#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace Kelvaris::Viewer {

/// A thread that does one job after the other. Ends with this object: the job in progress is waited for, those that
/// wait are dropped. Thread-safe.
class BackgroundThread {
public:
  BackgroundThread();
  ~BackgroundThread();
  BackgroundThread(const BackgroundThread&) = delete;
  BackgroundThread& operator=(const BackgroundThread&) = delete;

  /// The job must not throw.
  void post(std::function<void()> job);

private:
  void run();

  std::mutex m_mutex; ///< guards all down to the thread
  std::condition_variable m_wakeUp;
  std::deque<std::function<void()>> m_jobs;
  bool m_ending = false;
  std::thread m_thread;
};

} // namespace Kelvaris::Viewer
