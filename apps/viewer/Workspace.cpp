#include "viewer/Workspace.h"

#include "viewer/ImageFiles.h"
#include "viewer/Run.h"
#include "viewer/WorkspaceTools.h"

#include "Gui/AfterLongWork.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Kelvaris::Viewer {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

} // namespace

std::string namesOf(const std::vector<DataItem*>& items) {
  if (items.empty()) return "nothing";
  std::string names;
  for (const DataItem* item : items)
    names += fmt::format("{}\"{}\" ({})", names.empty() ? "" : ", ", item->name().toStdString(),
                         item->description().toStdString());
  return names;
}

Workspace::Workspace(QObject* parent)
    : QObject(parent),
      m_recordings([this](DataItem& stream, std::unique_ptr<SharedImageSet> images) {
        addData(std::move(images), nullptr, unusedName(tr("%1 recording").arg(stream.name())));
      }),
      m_changes([this] { takeChanges(); }, 0ms),
      m_runReports([this] { reportRun(); }, ReportedProgress::kInterval) {
  connect(&m_recordings, &StreamRecordings::changed, this, &Workspace::recordingChanged);
  connect(&m_recordings, &StreamRecordings::failed, this, &Workspace::failed);
  connect(&m_files, &FileJobs::progress, this,
          [this](const QString& text, int done, int steps) { Q_EMIT progress(nullptr, text, done, steps); });
  connect(&m_files, &FileJobs::failed, this, &Workspace::failed);
  connect(&m_files, &FileJobs::busyChanged, this, [this] { updateBusy(); });
  m_due.setSingleShot(true);
  connect(&m_due, &QTimer::timeout, this, [this] { afterLongWork(this, [this] { schedule(); }); });
}

Workspace::~Workspace() {
  const QSignalBlocker silence(this);
  if (m_run) m_run->reported.cancel();
  m_files.cancel();
  m_recordings.clear();
  removeAll();
}

DataItem* Workspace::item(int id) const {
  return findById(m_items, id);
}

Step* Workspace::step(int id) const {
  return findById(m_steps, id);
}

Step* Workspace::stepOf(const Algorithm& algorithm) const {
  for (const auto& step : m_steps)
    if (&step->algorithm() == &algorithm) return step.get();
  return nullptr;
}

DataItem& Workspace::addData(std::unique_ptr<Data> data, Step* producer, const QString& name) {
  QString chosen = name;
  if (chosen.isEmpty() && producer) chosen = producer->m_outputName;
  if (chosen.isEmpty()) chosen = unusedName(producer ? producer->name() : data ? text(data->name()) : QString());
  const bool reserved = producer && !producer->m_output && producer->m_outputId && !item(producer->m_outputId);
  const int id = reserved ? producer->m_outputId : m_nextId++;
  DataItem& added = insert(m_items, std::make_unique<DataItem>(id, std::move(chosen), std::move(data), producer));
  if (producer && !producer->m_output) {
    producer->m_output = &added;
    producer->m_outputId = id;
  }
  if (!producer) setModified();
  Q_EMIT itemAdded(&added);
  // Not at once, since steps that are added here have their controllers made while others make theirs.
  if (!m_pending.empty() && !std::exchange(m_pendingDue, true))
    QMetaObject::invokeMethod(
        this, [this] { afterLongWork(this, [this] { processPending(); }); }, Qt::QueuedConnection);
  return added;
}

QString Workspace::unusedName(const QString& name) const {
  const QString base = name.isEmpty() ? tr("Data") : name;
  QString candidate = base;
  const auto isUsed = [&](const auto& item) { return item->name() == candidate; };
  for (int i = 2; std::any_of(m_items.begin(), m_items.end(), isUsed); ++i)
    candidate = QString("%1 (%2)").arg(base).arg(i);
  return candidate;
}

void Workspace::rename(DataItem& item, const QString& name) {
  if (item.m_name == name) return;
  item.m_name = name;
  if (item.m_producer && item.m_producer->m_output == &item) item.m_producer->m_outputName = name;
  setModified();
  Q_EMIT itemChanged(&item);
}

void Workspace::cancelFiles() {
  m_files.cancel();
}

bool Workspace::isFileWorkGoingOn() const {
  return m_files.isBusy();
}

void Workspace::open(const fs::path& path) {
  m_files.start([this, file = absolutePath(path)](Progress& progress) -> FileJobs::Completion {
    // A std::function is copied, so that what it holds must be.
    auto images = std::make_shared<std::unique_ptr<SharedImageSet>>(ImageFiles::load(file, progress));
    return [this, file, images] {
      const QString name = unusedName(text(file.stem().string()));
      DataItem& added = insert(m_items, std::make_unique<DataItem>(m_nextId++, name, std::move(*images), nullptr));
      added.m_file = file;
      setModified();
      Q_EMIT itemAdded(&added);
    };
  });
}

void Workspace::save(DataItem& item, const fs::path& path) {
  if (!item.images()) {
    Q_EMIT failed(tr("%1 is no set of images; a stream has to be recorded before it can be saved").arg(item.name()));
    return;
  }
  m_files.start([this, file = absolutePath(path), images = item.snapshot(), id = item.id(),
                 version = item.m_version](Progress& progress) -> FileJobs::Completion {
    ImageFiles::save(file, *images, progress);
    return [this, file, id, version] {
      if (DataItem* const saved = this->item(id); saved && saved->m_version == version) {
        if (saved->m_file != file) {
          leaveFile(*saved);
          if (!saved->producer()) setModified();
        }
        saved->m_file = file;
        saved->m_fileIsSessions = false;
        Q_EMIT itemChanged(saved);
      }
      Q_EMIT saved(text(file.string()));
    };
  });
}

} // namespace Kelvaris::Viewer
