// How steps come into being, one by one and as chains.
#include "viewer/ErrorText.h"
#include "viewer/ThreadErrors.h"
#include "viewer/Workspace.h"
#include "viewer/WorkspaceTools.h"

#include "Lib/FactoryRegistry.h"
#include "Stream/StreamAlgorithm.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "kelvaris/ExampleData.h"
#include "kelvaris/Step.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

namespace Kelvaris::Viewer {
namespace {

namespace fs = std::filesystem;
using Clock = Step::Clock;

constexpr const char* kExecutorId = "SingleImageStreamAlgorithmExecutor";

DataList dataOf(const std::vector<DataItem*>& items) {
  DataList list;
  for (const DataItem* item : items)
    list.add(&item->data());
  return list;
}

/// A step as its algorithm reads it: checked where one can be made for the item, or for example data; else as it is.
Properties settingsOf(const CommandLine::Step& step, const AlgorithmFactory::Descriptor& descriptor, DataItem& item) {
  if (item.images())
    if (const auto algorithm = descriptor.create(DataList{&item.data()})) return settingsFor(step, *algorithm);
  for (const auto& set : CommandLine::exampleData())
    if (const auto algorithm = descriptor.create(DataList{set.get()})) return settingsFor(step, *algorithm);
  Properties settings;
  for (const auto& [key, value] : step.values)
    settings.setParam(key, value);
  return settings;
}

} // namespace

std::vector<AlgorithmFactory::Descriptor> Workspace::algorithms() const {
  return FactoryRegistry::get().algorithmDescriptors();
}

bool Workspace::isCompatible(const AlgorithmFactory::Descriptor& descriptor,
                             const std::vector<DataItem*>& inputs) const {
  try {
    return descriptor.isCompatible(dataOf(inputs));
  } catch (const std::exception&) {
    return false;
  }
}

Step* Workspace::addStep(const std::string& algorithmId, const std::vector<DataItem*>& inputs,
                         const Properties* settings) {
  Step* const added = createStep(m_nextId++, algorithmId, inputs, settings, nullptr);
  if (added) setModified();
  return added;
}

Step* Workspace::createStep(int id, const std::string& algorithmId, const std::vector<DataItem*>& inputs,
                            const Properties* settings, const std::function<void(Step&)>& prepare) {
  std::unique_ptr<Step> created;
  try {
    AlgorithmFactory::Descriptor descriptor = CommandLine::findAlgorithm(algorithmId);
    const ThreadErrors errors;
    auto algorithm = descriptor.create(dataOf(inputs));
    if (!algorithm) {
      const std::string reason = errors.text();
      throw std::runtime_error(fmt::format("{} does not work on {}{}{}", descriptor.displayName(), namesOf(inputs),
                                           reason.empty() ? "" : ": ", reason));
    }
    algorithm->configure(settings);
    created = std::make_unique<Step>(id, std::move(descriptor), std::move(algorithm), inputs,
                                     [this] { m_changes.request(); });
  } catch (...) {
    Q_EMIT failed(text(currentErrorText(algorithmId)));
    return nullptr;
  }
  if (prepare) prepare(*created);
  Step& added = insert(m_steps, std::move(created));
  const ThreadErrors errors;
  Q_EMIT stepAdded(&added);
  if (step(id) && added.isStream() && !added.output()) {
    if (added.algorithm().status() == Algorithm::Success)
      openStream(added);
    else // a controller has tried
      setState(added, Step::State::Failed, text(errors.text()));
  }
  if (step(id) && added.isStream()) added.algorithm().configuration(&(m_streamSettings[id] = {}));
  return step(id);
}

void Workspace::openStream(Step& step) {
  auto& algorithm = dynamic_cast<StreamAlgorithm&>(step.algorithm());
  std::string error;
  OwningDataList output;
  {
    const ThreadErrors errors;
    try {
      // The host's executor listens from its compute() on, but has its stream from the beginning.
      if (!algorithm.stream() || dynamic_cast<StreamAlgorithmExecutor*>(&algorithm)) algorithm.compute();
      output = algorithm.takeOutput();
      if (algorithm.status() != Algorithm::Success)
        error = errors.text().empty() ? statusText(algorithm.status()) : errors.text();
    } catch (...) {
      error = currentErrorText(step.name().toStdString());
    }
  }
  const int id = step.id();
  if (std::unique_ptr<Data> stream = output.extract<Data>()) addData(std::move(stream), &step);
  if (this->step(id)) setState(step, error.empty() ? Step::State::Idle : Step::State::Failed, text(error));
}

void Workspace::applyChain(const fs::path& path, DataItem& item) {
  std::vector<PendingStep> steps;
  try {
    int input = item.id();
    for (const CommandLine::Step& asked : CommandLine::readChain(path)) {
      const AlgorithmFactory::Descriptor descriptor = CommandLine::findAlgorithm(asked.id);
      Session::Step step;
      step.inputs = {input};
      step.run = true;
      const Properties settings = settingsOf(asked, descriptor, item);
      if (item.stream()) {
        step.algorithm = CommandLine::findAlgorithm(kExecutorId).id;
        step.outputName = descriptor.displayName();
        step.configuration.setParam("algorithmName", descriptor.id);
        step.configuration.addSubProperties("algorithmConfig") = settings;
      } else {
        step.algorithm = descriptor.id;
        step.configuration = settings;
      }
      input = step.output = m_nextId++;
      steps.push_back({m_nextId++, std::move(step)});
    }
  } catch (...) {
    Q_EMIT failed(text(currentErrorText("The chain")));
    return;
  }
  for (PendingStep& step : steps)
    m_pending.push_back(std::move(step));
  setModified();
  processPending();
}

/// Adds the steps whose inputs have come, and drops those whose inputs never will.
void Workspace::processPending() {
  m_pendingDue = false;
  const auto willCome = [this](int id) {
    return std::any_of(m_steps.begin(), m_steps.end(), [&](const auto& step) { return step->m_outputId == id; }) ||
           std::any_of(m_pending.begin(), m_pending.end(), [&](const auto& p) { return p.step.output == id; });
  };
  for (std::size_t i = 0; i < m_pending.size();) {
    std::vector<DataItem*> inputs;
    bool hopeless = false;
    const auto [id, step] = m_pending[i];
    for (const int needed : step.inputs) {
      if (DataItem* input = item(needed))
        inputs.push_back(input);
      else
        hopeless = hopeless || !willCome(needed);
    }
    if (!hopeless && inputs.size() < step.inputs.size()) {
      ++i;
      continue;
    }
    m_pending.erase(m_pending.begin() + static_cast<std::ptrdiff_t>(i));
    if (hopeless) {
      Q_EMIT failed(tr("The step %1 is left out: what it works on is missing").arg(text(step.algorithm)));
      continue;
    }
    Step* const added = createStep(id, step.algorithm, inputs, &step.configuration, [&, &asked = step](Step& created) {
      created.m_outputId = asked.output;
      created.m_outputName = text(asked.outputName);
    });
    if (added) restoreStream(*added, step.stream);
    if (added && step.run && !added->isStream()) {
      added->m_wanted = true;
      makeDirty(*added, Clock::now());
    }
    i = 0; // slots may have changed the list
  }
  schedule();
}

} // namespace Kelvaris::Viewer
