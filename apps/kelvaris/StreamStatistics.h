#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// How well live streams keep up. Times are in seconds unless they are of the clock.
namespace Kelvaris::CommandLine {

/// The value below which the `fraction` (0 to 1) of the values lies, between neighbours linearly; 0 for no values.
double quantile(std::vector<double> values, double fraction);

/// When the emissions of a stream came. add() and the rest from one thread at a time.
class ArrivalStatistics {
public:
  using Clock = std::chrono::steady_clock;

  void add(Clock::time_point arrival) { m_arrivals.push_back(arrival); }
  int count() const { return static_cast<int>(m_arrivals.size()); }
  /// Emissions per second between the first and the last; 0 for less than two.
  double rate() const;
  /// Beats that passed without an emission, for a stream that should emit once a `period`.
  int missed(double period) const;
  /// Lines for the user.
  std::string report(double rateAskedFor) const;

private:
  std::vector<double> intervals() const;

  std::vector<Clock::time_point> m_arrivals;
};

/// What goes into a stage of processing and what comes out, which carries the stamp of what it was made from. A stage
/// keeps the order and may drop. Thread-safe.
class StageStatistics {
public:
  using Clock = std::chrono::steady_clock;

  void enter(std::uint64_t stamp, Clock::time_point time);
  void leave(std::uint64_t stamp, Clock::time_point time);
  /// Waits until all that has entered has left or was overtaken, or the time is over.
  void waitUntilEmpty(std::chrono::seconds patience);
  /// "120 in, 118 out, 1 dropped, 1 unfinished; latency: median 8.1 ms, 95th percentile 12 ms".
  std::string report() const;

private:
  mutable std::mutex m_mutex;
  std::condition_variable m_left;
  std::deque<std::pair<std::uint64_t, Clock::time_point>> m_inside; ///< what has neither left nor been overtaken
  int m_in = 0;
  int m_dropped = 0;
  std::vector<double> m_latencies;
};

} // namespace Kelvaris::CommandLine
