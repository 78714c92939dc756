#pragma once

#include "Core/Progress.h"

#include <array>
#include <csignal>

namespace Kelvaris::CommandLine {

/// While it lives, SIGINT and SIGTERM cancel the progress instead of ending the program. A signal that is ignored, as
/// by nohup, stays so. One at a time.
class CancelOnInterrupt {
public:
  explicit CancelOnInterrupt(Progress& progress);
  ~CancelOnInterrupt();
  CancelOnInterrupt(const CancelOnInterrupt&) = delete;
  CancelOnInterrupt& operator=(const CancelOnInterrupt&) = delete;

private:
  static constexpr std::array kSignals = {SIGINT, SIGTERM};
  std::array<struct sigaction, kSignals.size()> m_previous{};
};

} // namespace Kelvaris::CommandLine
