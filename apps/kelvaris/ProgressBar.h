#pragma once

#include <chrono>
#include <string>

namespace Kelvaris::CommandLine {

/// A line on standard error that shows how much is done and how long the rest will take. Nothing is shown where
/// standard error is no terminal. The line is cleared at the end.
class ProgressBar {
public:
  /// `first` steps carry set-up costs that say nothing about the steps to come.
  ProgressBar(int steps, int first);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void stepDone();

  /// The line for `done` of `steps`, with the time left in seconds if it is known (>= 0).
  static std::string line(int done, int steps, double secondsLeft);

private:
  using Clock = std::chrono::steady_clock;

  int m_steps;
  int m_first;
  int m_done = 0;
  bool m_visible;
  Clock::time_point m_start = Clock::now(); ///< of what the time left is estimated from
  Clock::time_point m_shown{};
};

} // namespace Kelvaris::CommandLine
