#include "kelvaris/SequenceDesign.h"

#include "kelvaris/SequenceSummary.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Kelvaris::CommandLine {
namespace {

constexpr int kMostFirings = AcquisitionLimits::maxEvents;

using Firings = std::vector<std::pair<int, int>>; ///< frame and event

/// A value for each frame, from one for all or one a frame.
template <typename T> std::vector<T> perFrame(const std::vector<T>& values, std::size_t frames, const char* what) {
  if (values.size() == 1) return std::vector<T>(frames, values[0]);
  if (values.size() != frames)
    throw std::invalid_argument(fmt::format("There are {} {} for {} frame{}, give one for all or one for each",
                                            values.size(), what, frames, frames == 1 ? "" : "s"));
  return values;
}

Firings firingsOf(int frame, int numEvents, int ensemble, FiringOrder order) {
  Firings firings;
  const bool perEvent = order == FiringOrder::PerEvent;
  for (int outer = 0; outer < (perEvent ? numEvents : ensemble); ++outer)
    for (int inner = 0; inner < (perEvent ? ensemble : numEvents); ++inner)
      firings.emplace_back(frame, perEvent ? outer : inner);
  return firings;
}

/// One of each list in turn; lists that have come to their end are passed over.
Firings interleaved(const std::vector<Firings>& lists) {
  Firings merged;
  bool any = true;
  for (std::size_t i = 0; any; ++i) {
    any = false;
    for (const Firings& list : lists)
      if (i < list.size()) {
        merged.push_back(list[i]);
        any = true;
      }
  }
  return merged;
}

} // namespace

Properties SequenceDesign::toProperties() const {
  const std::size_t frames = acquisitions.size();
  if (frames == 0) throw std::invalid_argument("There are no acquisitions to make a sequence of");
  const auto sizes = perFrame(ensembles, frames, "ensemble sizes");
  const auto delayOf = perFrame(delays, frames, "delays");

  std::vector<Firings> lists;
  double total = 0.0;
  for (std::size_t f = 0; f < frames; ++f) {
    if (sizes[f] < 1)
      throw std::invalid_argument(fmt::format("An ensemble size is {}, it must be 1 or more", sizes[f]));
    if (const double delay = delayOf[f].value_or(0.0); !(delay >= 0.0) || std::isinf(delay))
      throw std::invalid_argument(fmt::format("A delay is {} us, it must be 0 or more", delay * 1e6));
    const int numEvents = summarizeAcquisition(acquisitions[f]).numEvents;
    total += static_cast<double>(numEvents) * sizes[f];
    if (total > kMostFirings)
      throw std::invalid_argument(
          fmt::format("There are {} firings with an ensemble size of {}, at most {} make a sequence", total, sizes[f],
                      kMostFirings));
    lists.push_back(firingsOf(static_cast<int>(f), numEvents, sizes[f], order));
  }
  Firings firings;
  if (order == FiringOrder::Interleaved)
    firings = interleaved(lists);
  else
    for (const Firings& list : lists)
      firings.insert(firings.end(), list.begin(), list.end());

  Properties properties;
  for (const Properties& acquisition : acquisitions)
    properties.addSubProperties("frameAcquisitions") = acquisition;
  std::vector<double> stored;
  for (const auto& [frame, event] : firings) {
    Properties& firing = properties.addSubProperties("eventOrder");
    firing.setParam("acquisitionIndex", frame);
    firing.setParam("eventIndex", event);
    stored.push_back(delayOf[static_cast<std::size_t>(frame)].value_or(std::numeric_limits<double>::quiet_NaN()));
  }
  properties.setParam("interEventDelays", stored);
  summarizeSequence(properties); // checks that the frames are of one array
  return properties;
}

} // namespace Kelvaris::CommandLine
