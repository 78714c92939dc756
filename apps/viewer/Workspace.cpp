#include "viewer/Workspace.h"

#include "viewer/ErrorText.h"
#include "viewer/ImageFiles.h"
#include "viewer/ReportedProgress.h"
#include "viewer/StreamCapture.h"
#include "viewer/ThreadErrors.h"

#include "GL/ContextManager.h"
#include "Gui/AfterLongWork.h"
#include "Lib/FactoryRegistry.h"
#include "Stream/StreamAlgorithm.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "kelvaris/ExampleData.h"
#include "kelvaris/Step.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

#include <unistd.h> // sysconf

namespace Kelvaris::Viewer {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = Step::Clock;

/// Changes of parameters that come closer together are one.
constexpr auto kChangeDelay = 50ms;
constexpr const char* kExecutorId = "SingleImageStreamAlgorithmExecutor";

QString text(const std::string& utf8) {
  return QString::fromStdString(utf8);
}

/// An empty path stays empty, for an error in words later.
fs::path absolutePath(const fs::path& path) {
  return path.empty() ? path : fs::absolute(path);
}

std::string statusText(int status) {
  return fmt::format("It ended with status {}", status);
}

DataList dataOf(const std::vector<DataItem*>& items) {
  DataList list;
  for (const DataItem* item : items)
    list.add(&item->data());
  return list;
}

std::string namesOf(const std::vector<DataItem*>& items) {
  if (items.empty()) return "nothing";
  std::string names;
  for (const DataItem* item : items)
    names += fmt::format("{}\"{}\" ({})", names.empty() ? "" : ", ", item->name().toStdString(),
                         item->description().toStdString());
  return names;
}

template <typename T> std::unique_ptr<T> extract(std::vector<std::unique_ptr<T>>& owners, const T* owned) {
  const auto found = std::find_if(owners.begin(), owners.end(), [&](const auto& o) { return o.get() == owned; });
  std::unique_ptr<T> extracted = std::move(*found);
  owners.erase(found);
  return extracted;
}

/// Lists are kept in the order of the ids: what is made anew for a session comes to its old place.
template <typename T> T& insert(std::vector<std::unique_ptr<T>>& owners, std::unique_ptr<T> added) {
  const auto before = [](const auto& a, const auto& b) { return a->id() < b->id(); };
  return **owners.insert(std::upper_bound(owners.begin(), owners.end(), added, before), std::move(added));
}

template <typename T> T* findById(const std::vector<std::unique_ptr<T>>& owners, int id) {
  const auto found = std::find_if(owners.begin(), owners.end(), [&](const auto& o) { return o->id() == id; });
  return found == owners.end() ? nullptr : found->get();
}

std::size_t halfOfMemory() {
  return static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) / 2 * static_cast<std::size_t>(sysconf(_SC_PAGE_SIZE));
}

void runWithOpenGlIfAvailable(const std::function<void()>& f) {
  auto& contexts = GL::ContextManager::get();
  if (contexts.isAvailable())
    contexts.runWithOpenGL(f);
  else
    f(); // algorithms that need it say so
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

/// One compute() of a step. Of the main thread until it is given to the worker, and again when that is done.
struct Workspace::Run {
  Run(Step& s, CoalescedCall& call) : step(&s), algorithm(&s.algorithm()), inputs(s.inputs()), reported(call) {}

  Step* step; ///< null when it has been removed; of the main thread
  Algorithm* algorithm;
  std::vector<DataItem*> inputs;
  ReportedProgress reported;
  bool superseded = false; ///< another run is due before this one is done; of the main thread
  // What a run needs that was removed meanwhile, in the order in which it has to go.
  std::unique_ptr<Step> removedStep;
  std::vector<std::unique_ptr<DataItem>> removedItems;

  int status = Algorithm::Failure;
  std::unique_ptr<SharedImageSet> output;
  std::string error;
};

struct Workspace::Recording {
  int item;
  std::unique_ptr<StreamCapture> capture;
};

Workspace::Workspace(QObject* parent)
    : QObject(parent),
      m_changes([this] { takeChanges(); }, 0ms),
      m_runReports([this] { reportRun(); }, ReportedProgress::kInterval),
      m_recordingReports([this] { reportRecordings(); }, ReportedProgress::kInterval) {
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

// ---- Data and steps

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
  finishRecording(item.id());
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
  m_sessionFile.clear();
  setUnmodified();
  schedule();
}

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
    if (added && step.run && !added->isStream()) {
      added->m_wanted = true;
      makeDirty(*added, Clock::now());
    }
    i = 0; // slots may have changed the list
  }
  schedule();
}

// ---- Runs

void Workspace::run(Step& step) {
  if (step.isStream()) {
    if (!step.output()) openStream(step);
    return;
  }
  if (!step.m_wanted) setModified();
  step.m_wanted = true;
  makeDirty(step, Clock::now());
  schedule();
}

void Workspace::cancel(Step& step) {
  step.m_dirty = false;
  if (m_run && m_run->step == &step) {
    m_run->superseded = false;
    m_run->reported.cancel();
  } else if (step.state() == Step::State::Waiting) {
    setState(step, Step::State::Idle);
  }
  schedule();
}

bool Workspace::isBusy() const {
  return m_run || m_pendingDue || m_files.isBusy() ||
         std::any_of(m_steps.begin(), m_steps.end(), [](const auto& step) { return step->m_dirty; });
}

void Workspace::updateBusy() {
  const bool busy = isBusy();
  if (std::exchange(m_wasBusy, busy) != busy) Q_EMIT busyChanged(busy);
}

void Workspace::takeChanges() {
  std::vector<int> changed;
  for (const auto& step : m_steps)
    if (step->m_hasChanged.exchange(false)) changed.push_back(step->id());
  if (changed.empty()) return;
  setModified();
  for (const int id : changed)
    if (Step* const step = this->step(id); step && step->m_wanted) makeDirty(*step, Clock::now() + kChangeDelay);
  schedule();
}

void Workspace::makeDirty(Step& step, Clock::time_point due) {
  step.m_due = step.m_dirty ? std::min(step.m_due, due) : due;
  step.m_dirty = true;
  step.m_outdated = true;
  if (m_run && m_run->step == &step)
    Q_EMIT stepChanged(&step);
  else
    setState(step, Step::State::Waiting);
}

void Workspace::setState(Step& step, Step::State state, const QString& error) {
  step.m_state = state;
  step.m_error = error;
  Q_EMIT stepChanged(&step);
}

/// Starts the next step that is due, or sees to it that this is called again when one is.
void Workspace::schedule() {
  const auto now = Clock::now();
  auto earliest = Clock::time_point::max();
  Step* next = nullptr;
  // What is going to be replaced: steps that take it wait until it is.
  std::set<const DataItem*> outdated;
  bool restart = false;
  for (const auto& step : m_steps) {
    const auto& inputs = step->inputs();
    bool blocked = std::any_of(inputs.begin(), inputs.end(), [&](auto* input) { return outdated.contains(input); });
    if (m_run && m_run->step == step.get()) restart = blocked || (step->m_dirty && step->m_due <= now);
    if (step->m_dirty && step->m_due > now) {
      earliest = std::min(earliest, step->m_due);
      continue; // its output counts as outdated only once it is due, lest a knob that is being turned halts the others
    }
    if (step->m_dirty && !blocked && !next) next = step.get();
    if ((step->m_dirty || blocked) && step->output()) outdated.insert(step->output());
  }
  if (earliest != Clock::time_point::max())
    m_due.start(std::chrono::ceil<std::chrono::milliseconds>(earliest - now));
  else
    m_due.stop();
  if (m_run && restart && !m_run->superseded) {
    m_run->superseded = true;
    m_run->step->m_dirty = true;
    m_run->reported.cancel();
  }
  if (!m_run && next) start(*next);
  updateBusy();
}

void Workspace::start(Step& step) {
  step.m_dirty = false;
  if (!isCompatible(step.descriptor(), step.inputs())) { // what it takes may have become another kind of data
    setState(step, Step::State::Failed, tr("It does not work on %1").arg(text(namesOf(step.inputs()))));
    schedule();
    return;
  }
  m_run = std::make_shared<Run>(step, m_runReports);
  setState(step, Step::State::Running);
  m_runner.post([this, run = m_run] {
    execute(*run);
    QMetaObject::invokeMethod(
        this, [this, run] { afterLongWork(this, [this, run] { finish(run); }); }, Qt::QueuedConnection);
  });
}

/// On the worker thread.
void Workspace::execute(Run& run) {
  Progress& progress = run.reported;
  run.status = Algorithm::Canceled;
  if (progress.wasCanceled()) return;
  const ThreadErrors errors;
  try {
    runWithOpenGlIfAvailable([&] {
      run.algorithm->setProgress(&progress);
      run.algorithm->compute();
      run.status = run.algorithm->status();
      OwningDataList output = run.algorithm->takeOutput();
      run.output = output.extract<SharedImageSet>();
      for (int i = 0; run.output && i < run.output->size(); ++i)
        run.output->get(i).mem(); // here rather than when it is shown
    });
  } catch (...) {
    run.status = Algorithm::Failure;
    run.error = currentErrorText(run.algorithm->factoryInfo().displayName);
  }
  run.algorithm->setProgress(nullptr);
  if (const std::string logged = errors.text(); !logged.empty())
    run.error = run.error.empty() ? logged : logged + "\n" + run.error;
}

void Workspace::finish(const std::shared_ptr<Run>& run) {
  m_run.reset();
  Step* const step = run->step;
  if (!step) {
    run->removedStep.reset();
    run->removedItems.clear();
    schedule();
    return;
  }
  const int id = step->id();
  if (run->status == Algorithm::Success && run->output && run->output->size() > 0) {
    step->m_outdated = step->m_dirty;
    takeOutput(*step, std::move(run->output));
    if (this->step(id)) setState(*step, step->m_dirty ? Step::State::Waiting : Step::State::Idle);
  } else if (step->m_dirty) {
    setState(*step, Step::State::Waiting);
  } else if (run->status == Algorithm::Canceled) {
    setState(*step, Step::State::Idle);
  } else {
    if (run->error.empty())
      run->error = run->status == Algorithm::Success ? "It made no images" : statusText(run->status);
    setState(*step, Step::State::Failed, text(run->error));
  }
  schedule();
}

void Workspace::takeOutput(Step& step, std::unique_ptr<SharedImageSet> output) {
  if (!step.output()) {
    addData(std::move(output), &step);
    return;
  }
  DataItem& item = *step.output();
  item.replaceContent(*output); // no run reads it now
  std::vector<int> consumers;
  for (const auto& consumer : m_steps)
    if (consumer->takes(item) && consumer->m_wanted) consumers.push_back(consumer->id());
  for (const int id : consumers)
    if (Step* const consumer = this->step(id)) makeDirty(*consumer, Clock::now());
  Q_EMIT itemChanged(&item);
}

void Workspace::reportRun() {
  if (!m_run || !m_run->step) return;
  const auto [text, done, steps] = m_run->reported.report();
  if (!text.empty()) Q_EMIT progress(m_run->step, Viewer::text(text), done, steps);
}

// ---- Files

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
        if (saved->m_file != file && !saved->producer()) setModified();
        saved->m_file = file;
        saved->m_fileIsSessions = false;
        Q_EMIT itemChanged(saved);
      }
      Q_EMIT saved(text(file.string()));
    };
  });
}

// ---- Recordings

void Workspace::startRecording(DataItem& stream, int emissions) {
  if (!stream.stream()) {
    Q_EMIT failed(tr("%1 is no live stream that could be recorded").arg(stream.name()));
    return;
  }
  if (isRecording(stream)) {
    Q_EMIT failed(tr("%1 is being recorded already").arg(stream.name()));
    return;
  }
  m_recordings.push_back(
      {stream.id(), std::make_unique<StreamCapture>(*stream.stream(), std::max(emissions, 0), halfOfMemory(),
                                                    [this] { m_recordingReports.request(); })});
}

void Workspace::stopRecording(DataItem& stream) {
  finishRecording(stream.id());
}

bool Workspace::isRecording(const DataItem& stream) const {
  return std::any_of(m_recordings.begin(), m_recordings.end(),
                     [&](const Recording& recording) { return recording.item == stream.id(); });
}

void Workspace::reportRecordings() {
  std::vector<std::pair<int, int>> going;
  std::vector<int> complete;
  for (const Recording& recording : m_recordings) {
    if (recording.capture->isComplete())
      complete.push_back(recording.item);
    else
      going.emplace_back(recording.item, recording.capture->emissions());
  }
  for (const auto& [id, emissions] : going)
    if (DataItem* const stream = item(id)) Q_EMIT recordingChanged(stream, emissions);
  for (const int id : complete)
    finishRecording(id);
}

void Workspace::finishRecording(int itemId) {
  const auto found = std::find_if(m_recordings.begin(), m_recordings.end(),
                                  [&](const Recording& recording) { return recording.item == itemId; });
  if (found == m_recordings.end()) return;
  const std::unique_ptr<StreamCapture> capture = std::move(found->capture);
  m_recordings.erase(found);
  DataItem* const stream = item(itemId);
  std::unique_ptr<SharedImageSet> images = capture->finish();
  Q_EMIT recordingChanged(stream, 0);
  if (const std::string problem = capture->problem(); !problem.empty())
    Q_EMIT failed(QString("%1: %2").arg(stream->name(), text(problem)));
  if (images->size() > 0)
    addData(std::move(images), nullptr, unusedName(tr("%1 recording").arg(stream->name())));
  else if (capture->problem().empty())
    Q_EMIT failed(tr("Nothing has been recorded: %1 has emitted no images meanwhile").arg(stream->name()));
}

// ---- Sessions

void Workspace::setModified() {
  ++m_modifications;
  if (!std::exchange(m_modified, true)) Q_EMIT modifiedChanged(true);
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

void Workspace::setUnmodified() {
  if (std::exchange(m_modified, false)) Q_EMIT modifiedChanged(false);
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
    if (item->file().empty() || (item->m_fileIsSessions && item->file().parent_path() != dataFolder))
      unsaved[item->id()] = item->snapshot();
    session.items.push_back({item->id(), item->name().toStdString(), item->file()});
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
  m_files.start([this, file, session = std::move(session), unsaved = std::move(unsaved), versions,
                 modifications = m_modifications](Progress& progress) mutable -> FileJobs::Completion {
    SessionFile::save(file, session, unsaved, progress);
    std::map<int, fs::path> written;
    for (const Session::Item& item : session.items)
      if (versions.contains(item.id)) written[item.id] = item.file;
    return [this, file, written, versions, modifications] {
      for (const auto& [id, dataFile] : written)
        if (DataItem* const item = this->item(id); item && item->m_version == versions.at(id)) {
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

void Workspace::openSession(const fs::path& path) {
  m_files.start([this, file = absolutePath(path)](Progress& progress) -> FileJobs::Completion {
    auto opened = std::make_shared<SessionFile::Opened>(SessionFile::open(file, progress));
    return [this, file, opened] { restore(file, *opened); };
  });
}

void Workspace::restore(const fs::path& file, SessionFile::Opened& opened) {
  m_recordings.clear();
  removeAll();
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
    added.m_fileIsSessions = item.file.parent_path() == SessionFile::dataFolder(file);
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
