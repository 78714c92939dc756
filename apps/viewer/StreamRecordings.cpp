#include "viewer/StreamRecordings.h"

#include "viewer/DataItem.h"
#include "viewer/ReportedProgress.h"

#include <algorithm>
#include <string>
#include <utility>

#include <unistd.h> // sysconf

namespace Kelvaris::Viewer {
namespace {

std::size_t halfOfMemory() {
  return static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) / 2 * static_cast<std::size_t>(sysconf(_SC_PAGE_SIZE));
}

} // namespace

StreamRecordings::StreamRecordings(Take take)
    : m_take(std::move(take)), m_reports([this] { report(); }, ReportedProgress::kInterval) {}

void StreamRecordings::start(DataItem& stream, int emissions) {
  if (!stream.stream()) {
    Q_EMIT failed(tr("%1 is no live stream that could be recorded").arg(stream.name()));
    return;
  }
  if (isRecording(stream)) {
    Q_EMIT failed(tr("%1 is being recorded already").arg(stream.name()));
    return;
  }
  m_recordings.push_back({&stream, std::make_unique<StreamCapture>(*stream.stream(), std::max(emissions, 0),
                                                                   halfOfMemory(), [this] { m_reports.request(); })});
}

bool StreamRecordings::isRecording(const DataItem& stream) const {
  return std::any_of(m_recordings.begin(), m_recordings.end(),
                     [&](const Recording& recording) { return recording.stream == &stream; });
}

void StreamRecordings::report() {
  std::vector<std::pair<DataItem*, int>> going;
  std::vector<DataItem*> complete;
  for (const Recording& recording : m_recordings) {
    if (recording.capture->isComplete())
      complete.push_back(recording.stream);
    else
      going.emplace_back(recording.stream, recording.capture->emissions());
  }
  for (const auto& [stream, emissions] : going)
    Q_EMIT changed(stream, emissions);
  for (DataItem* stream : complete)
    stop(*stream);
}

void StreamRecordings::stop(DataItem& stream) {
  const auto found = std::find_if(m_recordings.begin(), m_recordings.end(),
                                  [&](const Recording& recording) { return recording.stream == &stream; });
  if (found == m_recordings.end()) return;
  const std::unique_ptr<StreamCapture> capture = std::move(found->capture);
  m_recordings.erase(found);
  std::unique_ptr<SharedImageSet> images = capture->finish();
  Q_EMIT changed(&stream, 0);
  const std::string problem = capture->problem();
  if (!problem.empty()) Q_EMIT failed(QString("%1: %2").arg(stream.name(), QString::fromStdString(problem)));
  if (images->size() > 0)
    m_take(stream, std::move(images));
  else if (problem.empty())
    Q_EMIT failed(tr("Nothing has been recorded: %1 has emitted no images meanwhile").arg(stream.name()));
}

void StreamRecordings::stopAll() {
  while (!m_recordings.empty())
    stop(*m_recordings.back().stream);
}

} // namespace Kelvaris::Viewer
