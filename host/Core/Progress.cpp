#include "Core/Progress.h"

#include <utility>

namespace Kelvaris {

std::unique_ptr<ProgressTask> Progress::addTask(std::string text, int steps) {
  return std::make_unique<ProgressTask>(*this, std::move(text), steps);
}

ProgressTask::ProgressTask(Progress& progress, std::string text, int steps)
    : m_progress(progress), m_text(std::move(text)), m_steps(steps) {
  if (m_progress.onStep) m_progress.onStep(*this);
}

void ProgressTask::incrementStep(int steps) {
  m_step += steps;
  if (m_progress.onStep) m_progress.onStep(*this);
}

} // namespace Kelvaris
