#pragma once

#include "Core/Progress.h"
#include "viewer/CoalescedCall.h"

#include <chrono>
#include <mutex>
#include <string>

namespace Kelvaris::Viewer {

/// Progress of work on another thread whose latest state the main thread can read.
class ReportedProgress : public Progress {
public:
  struct Report {
    std::string text; ///< empty as long as nothing has been reported
    int done = 0, steps = 0;
  };
  /// A good interval for the calls.
  static constexpr std::chrono::milliseconds kInterval{40};

  /// Requests the call, which must outlive the work, at every step.
  explicit ReportedProgress(CoalescedCall& call);
  Report report() const;

private:
  mutable std::mutex m_mutex;
  Report m_latest; ///< guarded by the mutex
};

} // namespace Kelvaris::Viewer
