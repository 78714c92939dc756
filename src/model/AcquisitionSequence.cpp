#include "model/AcquisitionSequence.h"

#include "Core/Log.h"
#include "Core/Properties.h"
#include "model/PropertyReading.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <stdexcept>
#include <utility>

namespace Kelvaris::US {
namespace {

using EventIndex = AcquisitionSequence::EventIndex;

/// Throws std::invalid_argument with the message unless the condition holds.
void require(bool condition, const char* message) {
  if (!condition) throw std::invalid_argument(message);
}

bool isIndex(int index, std::size_t size) {
  return index >= 0 && static_cast<std::size_t>(index) < size;
}

/// Each event of a frame once.
void appendEvents(std::vector<EventIndex>& order, int frame, const FrameAcquisition& acquisition) {
  for (int event = 0; event < static_cast<int>(acquisition.events().size()); ++event)
    order.push_back({frame, event});
}

} // namespace

AcquisitionSequence::AcquisitionSequence(std::vector<FrameAcquisition> frameAcquisitions)
    : m_frameAcquisitions(std::move(frameAcquisitions)) {
  for (int frame = 0; frame < numFrameAcquisitions(); ++frame)
    appendEvents(m_eventOrder, frame, m_frameAcquisitions[static_cast<std::size_t>(frame)]);
  m_interEventDelays.resize(m_eventOrder.size());
  checkConsistency();
}

AcquisitionSequence::AcquisitionSequence(std::vector<FrameAcquisition> frameAcquisitions,
                                         const std::vector<int>& ensembleSizes,
                                         const std::vector<EnsembleMode>& ensembleModes,
                                         const std::vector<std::optional<double>>& interEventDelays)
    : m_frameAcquisitions(std::move(frameAcquisitions)) {
  const std::size_t numFrames = m_frameAcquisitions.size();
  require(numFrames > 0, "AcquisitionSequence: The list of FrameAcquisitions must not be empty.");
  require(ensembleSizes.size() == numFrames && ensembleModes.size() == numFrames &&
              interEventDelays.size() == numFrames,
          "AcquisitionSequence: The sizes of ensembleSizes, ensembleModes and interEventDelays must match the number "
          "of FrameAcquisitions.");
  for (std::size_t f = 0; f < numFrames; ++f) {
    const int frame = static_cast<int>(f);
    require(ensembleSizes[f] >= 1, "AcquisitionSequence: Ensemble sizes must be at least 1.");
    switch (ensembleModes[f]) {
    case EnsembleMode::PerEvent:
      for (int event = 0; event < static_cast<int>(m_frameAcquisitions[f].events().size()); ++event)
        m_eventOrder.insert(m_eventOrder.end(), static_cast<std::size_t>(ensembleSizes[f]), {frame, event});
      break;
    case EnsembleMode::PerFrame:
      for (int repetition = 0; repetition < ensembleSizes[f]; ++repetition)
        appendEvents(m_eventOrder, frame, m_frameAcquisitions[f]);
      break;
    default:
      throw std::invalid_argument("AcquisitionSequence: Unknown EnsembleMode.");
    }
    m_interEventDelays.resize(m_eventOrder.size(), interEventDelays[f]);
  }
  checkConsistency();
}

AcquisitionSequence::AcquisitionSequence(std::vector<FrameAcquisition> frameAcquisitions,
                                         std::vector<EventIndex> eventOrder,
                                         std::vector<std::optional<double>> interEventDelays)
    : m_frameAcquisitions(std::move(frameAcquisitions)),
      m_eventOrder(std::move(eventOrder)),
      m_interEventDelays(std::move(interEventDelays)) {
  checkConsistency();
}

AcquisitionSequence::AcquisitionSequence(const Transducer& transducer, const std::vector<PulseEchoEvent>& events,
                                         const std::vector<int>& eventToFrameMapping,
                                         std::vector<std::optional<double>> interEventDelays)
    : m_interEventDelays(std::move(interEventDelays)) {
  require(!events.empty(), "AcquisitionSequence: The list of events must not be empty.");
  require(eventToFrameMapping.size() == events.size() && m_interEventDelays.size() == events.size(),
          "AcquisitionSequence: The sizes of eventToFrameMapping and interEventDelays must match the number of "
          "events.");
  std::map<int, std::vector<PulseEchoEvent>> eventsOfFrame;
  for (std::size_t i = 0; i < events.size(); ++i) {
    const int frame = eventToFrameMapping[i];
    require(frame >= 0, "AcquisitionSequence: Frame indices in eventToFrameMapping must be non-negative.");
    std::vector<PulseEchoEvent>& ofFrame = eventsOfFrame[frame];
    m_eventOrder.push_back({frame, static_cast<int>(ofFrame.size())});
    ofFrame.push_back(events[i]);
  }
  for (auto& [frame, ofFrame] : eventsOfFrame)
    m_frameAcquisitions.emplace_back(transducer, std::move(ofFrame));
  checkConsistency();
}

std::vector<PulseEchoEvent> AcquisitionSequence::eventsInExecutionOrder() const {
  std::vector<PulseEchoEvent> events;
  if (m_frameAcquisitions.empty()) return events;
  events.reserve(m_eventOrder.size());
  for (const auto& [frame, event] : m_eventOrder)
    events.push_back(
        m_frameAcquisitions.at(static_cast<std::size_t>(frame)).events().at(static_cast<std::size_t>(event)));
  return events;
}

std::vector<PulseEchoEvent> AcquisitionSequence::frameAcquisitionEventsInExecutionOrder(int index) const {
  checkFrameIndex(index, "AcquisitionSequence: Frame index out of range.");
  const std::vector<PulseEchoEvent>& ofFrame = m_frameAcquisitions[static_cast<std::size_t>(index)].events();
  std::vector<PulseEchoEvent> events;
  for (const auto& [frame, event] : m_eventOrder)
    if (frame == index) events.push_back(ofFrame.at(static_cast<std::size_t>(event)));
  return events;
}

FrameAcquisition AcquisitionSequence::effectiveFrameAcquisition(int index) const {
  checkFrameIndex(index, "AcquisitionSequence: Acquisition index out of range.");
  FrameAcquisition effective(m_frameAcquisitions[static_cast<std::size_t>(index)]);
  effective.events() = frameAcquisitionEventsInExecutionOrder(index);
  if (BeamformingRois* rois = effective.rois()) {
    BeamformingRois fired;
    for (const auto& [frame, event] : m_eventOrder)
      if (frame == index) fired.add(rois->roi(event));
    *rois = fired;
  }
  return effective;
}

void AcquisitionSequence::checkFrameIndex(int index, const char* message) const {
  if (!isIndex(index, m_frameAcquisitions.size())) throw std::out_of_range(message);
}

void AcquisitionSequence::checkConsistency() const {
  const std::vector<FrameAcquisition>& frames = m_frameAcquisitions;
  require(!frames.empty(), "AcquisitionSequence: The list of FrameAcquisitions must not be empty.");
  require(!m_eventOrder.empty(), "AcquisitionSequence: The event order must not be empty.");
  require(m_interEventDelays.size() == m_eventOrder.size(),
          "AcquisitionSequence: The size of interEventDelays must match the size of eventOrder.");
  for (const EventIndex& entry : m_eventOrder)
    require(isIndex(entry.acquisitionIndex, frames.size()), "AcquisitionSequence: Invalid event index in event order.");
  for (const FrameAcquisition& frame : frames)
    require(frame.transducer() == transducer(),
            "AcquisitionSequence: All FrameAcquisitions must use the same Transducer.");

  std::vector<std::vector<int>> counts;
  for (const FrameAcquisition& frame : frames)
    counts.emplace_back(frame.events().size(), 0);
  for (const auto& [frame, event] : m_eventOrder) {
    std::vector<int>& ofFrame = counts[static_cast<std::size_t>(frame)];
    require(isIndex(event, ofFrame.size()),
            "AcquisitionSequence: Invalid event index in event order during coverage check.");
    ++ofFrame[static_cast<std::size_t>(event)];
  }
  for (const std::vector<int>& ofFrame : counts)
    for (const int count : ofFrame)
      require(count == ofFrame.front() && count >= 1,
              "AcquisitionSequence: Event order does not cover all events in the FrameAcquisitions the same number of "
              "times.");

  for (const std::optional<double>& delay : m_interEventDelays)
    require(!delay || !(*delay < 0.0), "AcquisitionSequence: Inter event delays must be non-negative if specified.");
}

void AcquisitionSequence::configure(const Properties* properties) {
  if (!properties) return;
  const std::vector<const Properties*> storedFrames = properties->allSubProperties("frameAcquisitions");
  const std::vector<const Properties*> storedOrder = properties->allSubProperties("eventOrder");
  if (storedFrames.empty() || storedOrder.empty()) return;

  std::vector<FrameAcquisition> frames(storedFrames.size());
  for (std::size_t i = 0; i < frames.size(); ++i)
    frames[i].configure(storedFrames[i]);
  std::vector<EventIndex> order(storedOrder.size());
  for (std::size_t i = 0; i < order.size(); ++i)
    if (!readIfPresent(*storedOrder[i], "acquisitionIndex", order[i].acquisitionIndex) ||
        !readIfPresent(*storedOrder[i], "eventIndex", order[i].eventIndex))
      return;
  std::vector<double> storedDelays;
  if (!readIfPresent(*properties, "interEventDelays", storedDelays)) return;

  m_frameAcquisitions = std::move(frames);
  m_eventOrder = std::move(order);
  m_interEventDelays.assign(storedDelays.size(), std::nullopt);
  for (std::size_t i = 0; i < storedDelays.size(); ++i)
    if (!std::isnan(storedDelays[i])) m_interEventDelays[i] = storedDelays[i];
  try {
    checkConsistency();
  } catch (const std::invalid_argument& inconsistent) {
    // The category is this text as it stands; whoever filters the log knows it so.
    Log::write(Log::Debug, "AcquisitionSequence configuration is inconsistent: {}", inconsistent.what());
  }
}

void AcquisitionSequence::configuration(Properties* properties) const {
  if (!properties) return;
  properties->removeSubProperties("frameAcquisitions");
  properties->removeSubProperties("eventOrder");
  for (const FrameAcquisition& frame : m_frameAcquisitions)
    frame.configuration(&properties->addSubProperties("frameAcquisitions"));
  for (const EventIndex& entry : m_eventOrder) {
    Properties& stored = properties->addSubProperties("eventOrder");
    stored.setParam("acquisitionIndex", entry.acquisitionIndex);
    stored.setParam("eventIndex", entry.eventIndex);
  }
  std::vector<double> delays;
  for (const std::optional<double>& delay : m_interEventDelays)
    delays.push_back(delay.value_or(std::numeric_limits<double>::quiet_NaN()));
  properties->setParam("interEventDelays", delays);
}

bool AcquisitionSequence::operator==(const AcquisitionSequence& other) const {
  return m_frameAcquisitions == other.m_frameAcquisitions && m_eventOrder == other.m_eventOrder &&
         m_interEventDelays == other.m_interEventDelays;
}

} // namespace Kelvaris::US
