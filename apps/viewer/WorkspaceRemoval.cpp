// How items and steps leave the workspace: what needs them goes first, and what a run still needs stays until it is
// over.
#include "viewer/Run.h"
#include "viewer/Workspace.h"
#include "viewer/WorkspaceTools.h"

#include <algorithm>
#include <set>
#include <utility>

namespace Kelvaris::Viewer {

void Workspace::remove(DataItem& item) {
  Step* const producer = item.m_producer;
  if (producer && producer->isStream()) {
    removeStep(*producer);
  } else {
    removeItem(item);
    if (producer) {
      producer->m_wanted = false;
      cancel(*producer);
    }
  }
  setModified();
  schedule();
}

void Workspace::remove(Step& step) {
  removeStep(step);
  setModified();
  schedule();
}

void Workspace::removeConsumers(const DataItem& item) {
  const auto last = [&] {
    return std::find_if(m_steps.rbegin(), m_steps.rend(), [&](const auto& step) { return step->takes(item); });
  };
  for (auto step = last(); step != m_steps.rend(); step = last())
    removeStep(**step);
}

void Workspace::removeItem(DataItem& item) {
  removeConsumers(item);
  m_recordings.stop(item);
  leaveFile(item);
  Q_EMIT itemAboutToBeRemoved(&item);
  if (item.m_producer && item.m_producer->m_output == &item) item.m_producer->m_output = nullptr;
  std::unique_ptr<DataItem> removed = extract(m_items, &item);
  if (m_run && std::count(m_run->inputs.begin(), m_run->inputs.end(), &item))
    m_run->removedItems.push_back(std::move(removed));
}

void Workspace::removeStep(Step& step) {
  for (const auto& item : outputsOf(step))
    removeConsumers(*item);
  std::set<int> gone = {step.m_outputId};
  std::erase_if(m_pending, [&](const PendingStep& pending) {
    const auto& inputs = pending.step.inputs;
    if (std::none_of(inputs.begin(), inputs.end(), [&](int id) { return gone.contains(id); })) return false;
    gone.insert(pending.step.output);
    return true;
  });
  Q_EMIT stepAboutToBeRemoved(&step); // controllers go before the streams that they steer
  for (DataItem* item : outputsOf(step))
    removeItem(*item);
  step.m_connections.clear();
  std::unique_ptr<Step> removed = extract(m_steps, &step);
  if (m_run && m_run->step == &step) {
    m_run->reported.cancel();
    m_run->step = nullptr;
    m_run->removedStep = std::move(removed);
  }
}

/// The last one first.
std::vector<DataItem*> Workspace::outputsOf(const Step& step) const {
  std::vector<DataItem*> outputs;
  for (auto item = m_items.rbegin(); item != m_items.rend(); ++item)
    if ((*item)->producer() == &step) outputs.push_back(item->get());
  return outputs;
}

void Workspace::removeAll() {
  m_pending.clear();
  while (!m_steps.empty())
    removeStep(*m_steps.back());
  while (!m_items.empty())
    removeItem(*m_items.back());
}

void Workspace::clear() {
  m_recordings.clear();
  removeAll();
  m_unusedFiles.clear();
  m_sessionFile.clear();
  setUnmodified();
  schedule();
}

} // namespace Kelvaris::Viewer
