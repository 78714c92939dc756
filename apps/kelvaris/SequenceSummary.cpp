#include "kelvaris/SequenceSummary.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace Kelvaris::CommandLine {
namespace {

/// Firings that are shown of a long list.
constexpr std::size_t kShownFirings = 16;

template <typename... Args> void require(bool condition, fmt::format_string<Args...> text, Args&&... args) {
  if (!condition)
    throw std::invalid_argument("The sequence is broken: " + fmt::format(text, std::forward<Args>(args)...));
}

AcquisitionSummary readFrame(const Properties& stored, std::size_t frame) {
  try {
    return summarizeAcquisition(stored);
  } catch (const std::invalid_argument& error) {
    throw std::invalid_argument(fmt::format("Frame {} of the sequence: {}", frame, error.what()));
  }
}

void readOrder(const Properties& properties, SequenceSummary& summary) {
  const auto stored = properties.allSubProperties("eventOrder");
  require(!stored.empty(), "it has no \"eventOrder\"");
  const int numFrames = static_cast<int>(summary.frames.size());
  std::vector<std::vector<int>> counts;
  for (const AcquisitionSummary& frame : summary.frames)
    counts.emplace_back(static_cast<std::size_t>(frame.numEvents), 0);
  for (std::size_t i = 0; i < stored.size(); ++i) {
    int frame = 0, event = 0;
    for (const auto& [key, value] : {std::pair("acquisitionIndex", &frame), std::pair("eventIndex", &event)})
      require(!stored[i]->hasParam(key) || stored[i]->param(key, *value), "\"{}\" of firing {} is no whole number", key,
              i);
    require(frame >= 0 && frame < numFrames, "firing {} is of frame {}, the frames are 0 to {}", i, frame,
            numFrames - 1);
    std::vector<int>& ofFrame = counts[static_cast<std::size_t>(frame)];
    require(event >= 0 && event < static_cast<int>(ofFrame.size()),
            "firing {} is event {} of frame {}, whose events are 0 to {}", i, event, frame, ofFrame.size() - 1);
    ++ofFrame[static_cast<std::size_t>(event)];
    summary.order.emplace_back(frame, event);
  }
  for (std::size_t frame = 0; frame < counts.size(); ++frame) {
    const std::vector<int>& ofFrame = counts[frame];
    for (std::size_t event = 0; event < ofFrame.size(); ++event) {
      require(ofFrame[event] > 0, "event {} of frame {} never fires", event, frame);
      require(ofFrame[event] == ofFrame[0],
              "event {} of frame {} fires {} times and event 0 {} times; all events of a frame must fire equally often",
              event, frame, ofFrame[event], ofFrame[0]);
    }
    summary.repetitions.push_back(ofFrame[0]);
  }
}

void readDelays(const Properties& properties, SequenceSummary& summary) {
  std::vector<double> delays;
  require(properties.param("interEventDelays", delays), "it has no readable \"interEventDelays\"");
  require(delays.size() == summary.order.size(), "it has {} delays for {} firings", delays.size(),
          summary.order.size());
  for (std::size_t i = 0; i < delays.size(); ++i) {
    require(!(delays[i] < 0.0) && !std::isinf(delays[i]),
            "the delay after firing {} is {} s, it must be 0 or more, or nan for none", i, delays[i]);
    summary.delays.push_back(std::isnan(delays[i]) ? std::nullopt : std::optional(delays[i]));
  }
}

std::string describeDelays(const SequenceSummary& summary) {
  const auto text = [](const std::optional<double>& delay) {
    return delay ? fmt::format("{:.6g} us", *delay * 1e6) : "none";
  };
  std::vector<std::string> different;
  double total = 0.0;
  for (std::size_t i = 0; i < summary.delays.size(); ++i) {
    const std::string delay = text(summary.delays[i]);
    if (std::find(different.begin(), different.end(), delay) == different.end()) different.push_back(delay);
    if (i + 1 < summary.delays.size()) total += summary.delays[i].value_or(0.0);
  }
  const bool many = different.size() > 4;
  return fmt::format("delays: {}; the last firing comes {:.6g} us after the first",
                     many ? fmt::format("{} different ones", different.size())
                          : fmt::format("{}", fmt::join(different, ", ")),
                     total * 1e6);
}

} // namespace

SequenceSummary summarizeSequence(const Properties& properties) {
  const auto frames = properties.allSubProperties("frameAcquisitions");
  require(!frames.empty(), "it has no \"frameAcquisitions\"");
  SequenceSummary summary;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    summary.frames.push_back(readFrame(*frames[i], i));
    const std::string first = describeArray(summary.frames[0]), other = describeArray(summary.frames[i]);
    require(first == other, "frame 0 is of a {}, frame {} of a {}; a sequence has one array", first, i, other);
  }
  readOrder(properties, summary);
  readDelays(properties, summary);
  return summary;
}

bool isSequence(const Properties& properties) {
  return properties.findSubProperties("frameAcquisitions") || properties.findSubProperties("eventOrder");
}

std::string describeSequence(const SequenceSummary& summary, int indent, bool full) {
  std::string text = fmt::format("{:{}}{}\n", "", indent, describeArray(summary.frames[0]));
  for (std::size_t i = 0; i < summary.frames.size(); ++i)
    text += fmt::format("{:{}}frame {}: {}; each fires {}\n", "", indent, i, describeEvents(summary.frames[i]),
                        summary.repetitions[i] == 1 ? "once" : fmt::format("{} times", summary.repetitions[i]));
  std::vector<std::string> firings;
  for (const auto& [frame, event] : summary.order)
    firings.push_back(fmt::format("{}.{}", frame, event));
  const bool cut = !full && firings.size() > kShownFirings;
  if (cut) firings.resize(kShownFirings);
  text += fmt::format("{:{}}firings (frame.event): {}{}\n", "", indent, fmt::join(firings, " "),
                      cut ? fmt::format(" ... ({} in all)", summary.order.size()) : "");
  return text + fmt::format("{:{}}{}\n", "", indent, describeDelays(summary));
}

} // namespace Kelvaris::CommandLine
