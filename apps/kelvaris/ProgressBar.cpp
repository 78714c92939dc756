#include "kelvaris/ProgressBar.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <unistd.h>

namespace Kelvaris::CommandLine {

ProgressBar::ProgressBar(int steps, int first)
    : m_steps(steps), m_first(first), m_visible(isatty(STDERR_FILENO) != 0) {}

ProgressBar::~ProgressBar() {
  if (m_visible && m_done > 0) std::fputs("\r\x1b[K", stderr);
}

void ProgressBar::stepDone() {
  ++m_done;
  const Clock::time_point now = Clock::now();
  if (m_done == m_first) m_start = now;
  if (!m_visible || (now - m_shown < std::chrono::milliseconds(100) && m_done < m_steps)) return;
  m_shown = now;
  const double seconds = std::chrono::duration<double>(now - m_start).count();
  const double left = m_done > m_first ? seconds / (m_done - m_first) * (m_steps - m_done) : -1.0;
  std::fprintf(stderr, "\r%s\x1b[K", line(m_done, m_steps, left).c_str());
}

std::string ProgressBar::line(int done, int steps, double secondsLeft) {
  constexpr int width = 30;
  const int filled = static_cast<int>(static_cast<long long>(width) * done / std::max(steps, 1));
  std::string text = fmt::format("[{:#<{}}{: <{}}] {:3d} %", "", filled, "", width - filled,
                                 static_cast<int>(100LL * done / std::max(steps, 1)));
  if (secondsLeft >= 0.0) {
    const long long seconds = std::llround(std::ceil(secondsLeft));
    text += seconds < 3600 ? fmt::format("  {}:{:02} left", seconds / 60, seconds % 60)
                           : fmt::format("  {}:{:02}:{:02} left", seconds / 3600, seconds / 60 % 60, seconds % 60);
  }
  return text;
}

} // namespace Kelvaris::CommandLine
