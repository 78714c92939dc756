// What a session keeps of the workspace, and how it comes back.
#include "viewer/Workspace.h"
#include "viewer/WorkspaceTools.h"

#include <algorithm>
#include <set>
#include <utility>

namespace Kelvaris::Viewer {
namespace {

namespace fs = std::filesystem;

constexpr const char *kRunning = "running", *kPaused = "paused", *kStopped = "stopped";

const char* stateText(Stream::State state) {
  return state == Stream::State::Running ? kRunning : state == Stream::State::Paused ? kPaused : kStopped;
}

} // namespace

void Workspace::setModified() {
  ++m_modifications;
  if (!std::exchange(m_modified, true)) Q_EMIT modifiedChanged(true);
}

void Workspace::setUnmodified() {
  if (std::exchange(m_modified, false)) Q_EMIT modifiedChanged(false);
}

std::map<int, Properties> Workspace::streamSettings() const {
  std::map<int, Properties> settings;
  for (const auto& step : m_steps)
    if (step->isStream()) step->algorithm().configuration(&settings[step->id()]);
  return settings;
}

bool Workspace::findStreamChanges() {
  const auto before = std::exchange(m_streamSettings, streamSettings());
  const bool changed = std::any_of(before.begin(), before.end(), [this](const auto& known) {
    const auto now = m_streamSettings.find(known.first);
    return now != m_streamSettings.end() && now->second != known.second;
  });
  if (changed) setModified();
  return changed;
}

Session Workspace::session(const fs::path& dataFolder, std::map<int, std::shared_ptr<const SharedImageSet>>& unsaved) {
  Session session;
  QStringList leftOut;
  std::set<int> ids;
  for (const auto& item : m_items) {
    if (item->producer()) continue;
    if (!item->images()) {
      leftOut.append(item->name());
      continue;
    }
    // What lies with another session goes along with this one.
    const fs::path kept = item->file().parent_path();
    const bool isSessions = item->m_fileIsSessions || kept == SessionFile::dataFolder(m_sessionFile);
    if (item->file().empty() || (isSessions && kept != dataFolder)) unsaved[item->id()] = item->snapshot();
    session.items.push_back({item->id(), item->name().toStdString(), item->file(), item->m_fileIsSessions});
    ids.insert(item->id());
  }
  std::map<int, Session::Step> steps;
  for (const auto& step : m_steps) {
    Session::Step& saved = steps[step->id()];
    saved.algorithm = step->descriptor().id;
    for (const DataItem* input : step->inputs())
      saved.inputs.push_back(input->id());
    saved.output = step->m_outputId;
    saved.outputName = (step->output() ? step->output()->name() : step->m_outputName).toStdString();
    saved.run = step->m_wanted;
    if (step->inputs().empty() && step->output() && step->output()->stream())
      saved.stream = stateText(step->output()->stream()->state());
    step->algorithm().configuration(&saved.configuration);
  }
  for (const auto& [id, step] : m_pending)
    steps[id] = step;
  for (auto& [id, step] : steps) {
    const auto isKept = [&](int input) { return ids.contains(input); };
    if (!std::all_of(step.inputs.begin(), step.inputs.end(), isKept)) {
      leftOut.append(text(step.algorithm));
      continue;
    }
    if (step.output) ids.insert(step.output);
    session.steps.push_back(std::move(step));
  }
  if (!leftOut.isEmpty())
    Q_EMIT failed(tr("A session can't keep what no step and no file makes again; it is saved without %1")
                      .arg(leftOut.join(", ")));
  return session;
}

void Workspace::saveSession(const fs::path& path, const Properties& view) {
  takeChanges(); // those of which it will have
  findStreamChanges();
  const fs::path file = absolutePath(path), folder = SessionFile::dataFolder(file);
  std::map<int, std::shared_ptr<const SharedImageSet>> unsaved;
  Session session = this->session(folder, unsaved);
  session.view = view;
  std::map<int, int> versions;
  for (const auto& [id, images] : unsaved)
    versions[id] = item(id)->m_version;
  std::set<fs::path> unused;
  for (const fs::path& one : m_unusedFiles)
    if (one.parent_path() == folder) unused.insert(one);
  m_files.start([this, file, session = std::move(session), unsaved = std::move(unsaved), unused, versions,
                 modifications = m_modifications](Progress& progress) mutable -> FileJobs::Completion {
    SessionFile::save(file, session, unsaved, unused, progress);
    std::map<int, fs::path> written;
    for (const Session::Item& item : session.items)
      if (versions.contains(item.id)) written[item.id] = item.file;
    return [this, file, written, versions, modifications] {
      std::erase_if(m_unusedFiles, [](const fs::path& one) { return !fs::exists(one); });
      for (const auto& [id, dataFile] : written)
        if (DataItem* const item = this->item(id); item && item->m_version == versions.at(id)) {
          leaveFile(*item);
          item->m_file = dataFile;
          item->m_fileIsSessions = true;
          Q_EMIT itemChanged(item);
        }
      m_sessionFile = file;
      if (m_modifications == modifications) setUnmodified();
      Q_EMIT sessionSaved(text(file.string()));
    };
  });
}

void Workspace::leaveFile(const DataItem& item) {
  if (item.m_fileIsSessions) m_unusedFiles.insert(item.file());
}

void Workspace::restoreStream(Step& step, const std::string& state) {
  ImageStream* const stream = step.output() ? step.output()->stream() : nullptr;
  if (!stream || state.empty() || state == kRunning) return;
  if (state == kPaused && stream->supportsPausing())
    stream->pauseAsync();
  else if (state == kPaused || state == kStopped)
    stream->stopAsync();
  else
    Q_EMIT failed(tr("The session says that the stream %1 is \"%2\", expected %3, %4 or %5; it runs")
                      .arg(step.output()->name(), text(state), kRunning, kPaused, kStopped));
}

void Workspace::openSession(const fs::path& path) {
  m_files.start([this, file = absolutePath(path)](Progress& progress) -> FileJobs::Completion {
    auto opened = std::make_shared<SessionFile::Opened>(SessionFile::open(file, progress));
    return [this, file, opened] { restore(file, *opened); };
  });
}

void Workspace::restore(const fs::path& file, SessionFile::Opened& opened) {
  m_recordings.clear();
  removeAll();
  m_unusedFiles.clear();
  const Session& session = opened.session;
  for (const Session::Item& item : session.items)
    m_nextId = std::max(m_nextId, item.id + 1);
  for (const Session::Step& step : session.steps)
    m_nextId = std::max(m_nextId, step.output + 1);
  for (const Session::Item& item : session.items) {
    const auto images = opened.images.find(item.id);
    if (images == opened.images.end()) continue;
    DataItem& added =
        insert(m_items, std::make_unique<DataItem>(item.id, text(item.name), std::move(images->second), nullptr));
    added.m_file = item.file;
    added.m_fileIsSessions = item.own;
    Q_EMIT itemAdded(&added);
  }
  for (const std::string& problem : opened.problems)
    Q_EMIT failed(text(problem));
  for (const Session::Step& step : session.steps)
    m_pending.push_back({m_nextId++, step});
  m_sessionFile = file;
  processPending();
  setUnmodified();
  if (!opened.problems.empty()) setModified(); // saved again, it would be without what is missing
  Q_EMIT sessionOpened(text(file.string()), session.view);
}

} // namespace Kelvaris::Viewer
