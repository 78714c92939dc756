#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace Kelvaris {

class ProgressTask;

/// Progress of long work, shared between the worker and the one who shows it. cancel() may be called from any thread
/// and from a signal handler.
class Progress {
public:
  /// Opens a task of `steps` steps. The task closes when it is destroyed; it must not outlive this object.
  std::unique_ptr<ProgressTask> addTask(std::string text, int steps);

  void cancel() { m_canceled = true; }
  bool wasCanceled() const { return m_canceled; }

  /// Called on the worker's thread whenever a task opens or steps. Set before the work starts.
  std::function<void(const ProgressTask&)> onStep;

private:
  static_assert(std::atomic<bool>::is_always_lock_free);
  std::atomic<bool> m_canceled = false;
};

class ProgressTask {
public:
  ProgressTask(Progress& progress, std::string text, int steps);

  void incrementStep(int steps);
  bool wasCanceled() const { return m_progress.wasCanceled(); }

  const std::string& text() const { return m_text; }
  int step() const { return m_step; }
  int steps() const { return m_steps; }

private:
  Progress& m_progress;
  std::string m_text;
  int m_step = 0;
  int m_steps;
};

} // namespace Kelvaris
