#pragma once

#include "viewer/BackgroundThread.h"
#include "viewer/CoalescedCall.h"

#include "Core/Progress.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

namespace Kelvaris::Viewer {

/// Work on files, one job after the other on a thread of its own. For the main thread.
class FileJobs : public QObject {
  Q_OBJECT

public:
  /// What is to be done on the main thread when a job is done.
  using Completion = std::function<void()>;
  /// Runs on the thread for files. What it throws is told by failed(); ImageFiles::Canceled is no failure.
  using Job = std::function<Completion(Progress&)>;

  FileJobs();
  /// Cancels the job that is going on, waits for it, and drops the rest.
  ~FileJobs() override;

  void start(Job job);
  /// Cancels the job that is going on and those that wait.
  void cancel();
  bool isBusy() const { return !m_entries.empty(); }

Q_SIGNALS:
  /// A few times a second at most; an empty text when all is done.
  void progress(const QString& text, int done, int steps);
  void failed(const QString& text);
  void busyChanged();

private:
  struct Entry;
  void finish(const std::shared_ptr<Entry>& entry, const Completion& completion);
  void report();

  std::vector<std::shared_ptr<Entry>> m_entries; ///< the job that is going on first
  CoalescedCall m_reports;
  BackgroundThread m_thread; ///< last: it uses the rest
};

} // namespace Kelvaris::Viewer
