#include "viewer/FileJobs.h"

#include "viewer/ErrorText.h"
#include "viewer/ImageFiles.h"
#include "viewer/ReportedProgress.h"

#include "Gui/AfterLongWork.h"

#include <utility>

namespace Kelvaris::Viewer {

struct FileJobs::Entry {
  Entry(Job j, CoalescedCall& reports) : job(std::move(j)), progress(reports) {}
  Job job;
  ReportedProgress progress;
};

FileJobs::FileJobs() : m_reports([this] { report(); }, ReportedProgress::kInterval) {}

FileJobs::~FileJobs() {
  cancel();
}

void FileJobs::start(Job job) {
  const auto entry = m_entries.emplace_back(std::make_shared<Entry>(std::move(job), m_reports));
  m_thread.post([this, entry] {
    Completion completion;
    try {
      if (!entry->progress.wasCanceled()) completion = entry->job(entry->progress);
    } catch (const ImageFiles::Canceled&) {
    } catch (...) {
      completion = [this, text = QString::fromStdString(currentErrorText("The file"))] { Q_EMIT failed(text); };
    }
    entry->job = nullptr; // with the images that it holds
    QMetaObject::invokeMethod(
        this,
        [this, entry, completion] { afterLongWork(this, [this, entry, completion] { finish(entry, completion); }); },
        Qt::QueuedConnection);
  });
  Q_EMIT busyChanged();
}

void FileJobs::finish(const std::shared_ptr<Entry>& entry, const Completion& completion) {
  if (completion) completion();
  std::erase(m_entries, entry);
  if (m_entries.empty()) Q_EMIT progress(QString(), 0, 0);
  Q_EMIT busyChanged();
}

void FileJobs::cancel() {
  for (const auto& entry : m_entries)
    entry->progress.cancel();
}

void FileJobs::report() {
  if (m_entries.empty()) return;
  const auto [text, done, steps] = m_entries.front()->progress.report();
  if (!text.empty()) Q_EMIT progress(QString::fromStdString(text), done, steps);
}

} // namespace Kelvaris::Viewer
