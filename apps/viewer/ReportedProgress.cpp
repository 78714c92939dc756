#include "viewer/ReportedProgress.h"

namespace Kelvaris::Viewer {

ReportedProgress::ReportedProgress(CoalescedCall& call) {
  onStep = [this, &call](const ProgressTask& task) {
    {
      const std::scoped_lock lock(m_mutex);
      m_latest = {task.text(), task.step(), task.steps()};
    }
    call.request();
  };
}

ReportedProgress::Report ReportedProgress::report() const {
  const std::scoped_lock lock(m_mutex);
  return m_latest;
}

} // namespace Kelvaris::Viewer
