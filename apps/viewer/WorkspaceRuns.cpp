// When steps run, and what becomes of their results.
#include "viewer/ErrorText.h"
#include "viewer/Run.h"
#include "viewer/ThreadErrors.h"
#include "viewer/Workspace.h"
#include "viewer/WorkspaceTools.h"

#include "GL/ContextManager.h"
#include "Gui/AfterLongWork.h"

#include <algorithm>
#include <set>
#include <utility>

namespace Kelvaris::Viewer {
namespace {

using namespace std::chrono_literals;
using Clock = Step::Clock;

/// Changes of parameters that come closer together are one.
constexpr auto kChangeDelay = 50ms;

void runWithOpenGlIfAvailable(const std::function<void()>& f) {
  auto& contexts = GL::ContextManager::get();
  if (contexts.isAvailable())
    contexts.runWithOpenGL(f);
  else
    f(); // algorithms that need it say so
}

} // namespace

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

} // namespace Kelvaris::Viewer
