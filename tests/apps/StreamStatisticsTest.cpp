#include "kelvaris/StreamStatistics.h"

#include "support/ErrorOf.h"

namespace Kelvaris::CommandLine {
namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point at(double milliseconds) {
  return Clock::time_point() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double, std::milli>(milliseconds));
}

TEST(StreamStatistics, TellHowTheBeatIsKept) {
  ArrivalStatistics arrivals;
  EXPECT_CONTAINS(arrivals.report(100.0), "Frames: 0");
  for (const double time : {0.0, 10.0, 21.0, 30.0, 61.0, 70.0, 84.0, 100.0}) // two beats are missed, one is nearly
    arrivals.add(at(time));
  EXPECT_EQ(arrivals.missed(0.01), 3);
  EXPECT_DOUBLE_EQ(arrivals.rate(), 70.0);
  EXPECT_CONTAINS(arrivals.report(100.0), "Frames: 8, 70 per second (100 asked for), 3 dropped");
  EXPECT_CONTAINS(arrivals.report(100.0),
                  "median 11.00 ms, 95th percentile 26.50 ms, largest 31.00 ms; the period is 10.00 ms");
}

TEST(StreamStatistics, CountWhatAStageDropsAndHowLongTheRestTakes) {
  StageStatistics stage;
  for (int i = 0; i < 6; ++i)
    stage.enter(static_cast<std::uint64_t>(33 * i), at(33.0 * i));
  stage.leave(0, at(10.0));
  stage.leave(99, at(119.0)); // 33 and 66 were dropped
  stage.leave(7, at(120.0));  // made from nothing that came in
  stage.leave(132, at(162.0));
  EXPECT_EQ(stage.report(), "6 in, 3 out, 2 dropped, 1 unfinished; latency: median 20.00 ms, 95th percentile 29.00 ms");
}

} // namespace
} // namespace Kelvaris::CommandLine
