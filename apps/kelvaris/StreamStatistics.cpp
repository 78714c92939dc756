#include "kelvaris/StreamStatistics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Kelvaris::CommandLine {
namespace {

double seconds(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

} // namespace

double quantile(std::vector<double> values, double fraction) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  const double place = fraction * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return std::lerp(values[below], values[above], place - std::floor(place));
}

std::vector<double> ArrivalStatistics::intervals() const {
  std::vector<double> result;
  for (std::size_t i = 1; i < m_arrivals.size(); ++i)
    result.push_back(seconds(m_arrivals[i] - m_arrivals[i - 1]));
  return result;
}

double ArrivalStatistics::rate() const {
  if (m_arrivals.size() < 2) return 0.0;
  return static_cast<double>(m_arrivals.size() - 1) / seconds(m_arrivals.back() - m_arrivals.front());
}

int ArrivalStatistics::missed(double period) const {
  double beats = 0.0;
  for (const double interval : intervals())
    beats += std::max(0.0, std::round(interval / period) - 1.0);
  return static_cast<int>(beats);
}

std::string ArrivalStatistics::report(double rateAskedFor) const {
  const double period = 1.0 / rateAskedFor;
  if (m_arrivals.size() < 2) return fmt::format("Frames: {}; it takes two to tell a rate\n", m_arrivals.size());
  const auto intervals = this->intervals();
  const auto milliseconds = [](double s) { return fmt::format("{:.2f} ms", s * 1e3); };
  return fmt::format("Frames: {}, {:.4g} per second ({:.4g} asked for), {} dropped\n"
                     "Intervals: median {}, 95th percentile {}, largest {}; the period is {}\n",
                     m_arrivals.size(), rate(), rateAskedFor, missed(period), milliseconds(quantile(intervals, 0.5)),
                     milliseconds(quantile(intervals, 0.95)), milliseconds(quantile(intervals, 1.0)),
                     milliseconds(period));
}

void StageStatistics::enter(std::uint64_t stamp, Clock::time_point time) {
  const std::scoped_lock lock(m_mutex);
  m_inside.emplace_back(stamp, time);
  ++m_in;
}

void StageStatistics::leave(std::uint64_t stamp, Clock::time_point time) {
  const std::scoped_lock lock(m_mutex);
  const auto entered =
      std::find_if(m_inside.begin(), m_inside.end(), [&](const auto& entry) { return entry.first == stamp; });
  if (entered == m_inside.end()) return;
  m_dropped += static_cast<int>(entered - m_inside.begin());
  m_latencies.push_back(seconds(time - entered->second));
  m_inside.erase(m_inside.begin(), entered + 1);
  m_left.notify_all();
}

void StageStatistics::waitUntilEmpty(std::chrono::seconds patience) {
  std::unique_lock lock(m_mutex);
  m_left.wait_for(lock, patience, [&] { return m_inside.empty(); });
}

std::string StageStatistics::report() const {
  const std::scoped_lock lock(m_mutex);
  std::string text = fmt::format("{} in, {} out, {} dropped", m_in, m_latencies.size(), m_dropped);
  if (!m_inside.empty()) text += fmt::format(", {} unfinished", m_inside.size());
  if (!m_latencies.empty())
    text += fmt::format("; latency: median {:.2f} ms, 95th percentile {:.2f} ms", quantile(m_latencies, 0.5) * 1e3,
                        quantile(m_latencies, 0.95) * 1e3);
  return text;
}

} // namespace Kelvaris::CommandLine
