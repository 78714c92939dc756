#pragma once

#include "Core/Configurable.h"
#include "model/FrameAcquisition.h"

#include <optional>
#include <vector>

namespace Kelvaris::US {

/// The programme that a scanner runs: frame acquisitions of one transducer, the order in which their events fire, and a
/// pause before the next firing where one is stated. A frame acquisition says what a frame consists of, the sequence
/// how often each event fires and how the firings of different frames interleave:
///
///     frames        A (events a, b), B (event c)
///     event order   (0, 0)  (1, 0)  (0, 1)  (1, 0)       fires a c b c: A once, B an ensemble of two
///     delays         100 us  none    100 us  none        from the start of one firing to that of the next
///
/// What the constructors make is consistent (checkConsistency); what the default constructor makes or configure() reads
/// may not be. Not safe to change from several threads; may be read from several.
class AcquisitionSequence : public Configurable {
public:
  struct EventIndex {
    int acquisitionIndex = 0; ///< into the frame acquisitions
    int eventIndex = 0;       ///< into that frame acquisition's events
    bool operator==(const EventIndex&) const = default;
  };

  /// Order of the repetitions of a frame with events a, b and ensemble size 2.
  enum class EnsembleMode : int {
    PerEvent = 0, ///< a a b b
    PerFrame = 1  ///< a b a b
  };

  /// Empty; not consistent.
  AcquisitionSequence() = default;
  /// Every event of every frame once, frame after frame, without stated delays. This constructor and the following
  /// throw std::invalid_argument like checkConsistency, besides what they say.
  explicit AcquisitionSequence(std::vector<FrameAcquisition> frameAcquisitions);
  /// Frame after frame, each repeated by its ensemble size (at least 1) in its mode; all of a frame's firings get the
  /// frame's delay (s). One entry per frame in each list, else std::invalid_argument.
  AcquisitionSequence(std::vector<FrameAcquisition> frameAcquisitions, const std::vector<int>& ensembleSizes,
                      const std::vector<EnsembleMode>& ensembleModes,
                      const std::vector<std::optional<double>>& interEventDelays);
  /// Takes over the order and the delays (s), which have one entry per firing.
  AcquisitionSequence(std::vector<FrameAcquisition> frameAcquisitions, std::vector<EventIndex> eventOrder,
                      std::vector<std::optional<double>> interEventDelays);
  /// Events in execution order, each with the number of its frame (from 0, without gaps) and its delay (s). The frames
  /// have no parameters, regions or geometry. Throws std::invalid_argument if there are no events, the lists differ in
  /// length or a number is negative.
  AcquisitionSequence(const Transducer& transducer, const std::vector<PulseEchoEvent>& events,
                      const std::vector<int>& eventToFrameMapping, std::vector<std::optional<double>> interEventDelays);

  const std::vector<FrameAcquisition>& frameAcquisitions() const { return m_frameAcquisitions; }
  std::vector<FrameAcquisition>& frameAcquisitions() { return m_frameAcquisitions; }
  int numFrameAcquisitions() const { return static_cast<int>(m_frameAcquisitions.size()); }
  /// One entry per firing, in execution order.
  const std::vector<EventIndex>& eventOrder() const { return m_eventOrder; }
  /// Number of firings, not of distinct events.
  int numEvents() const { return static_cast<int>(m_eventOrder.size()); }
  /// One entry per firing, in seconds from its start to that of the next firing; empty where no delay is stated.
  const std::vector<std::optional<double>>& interEventDelays() const { return m_interEventDelays; }
  std::vector<std::optional<double>>& interEventDelays() { return m_interEventDelays; }
  /// That of the first frame acquisition. Throws std::out_of_range if there is none.
  const Transducer& transducer() const { return m_frameAcquisitions.at(0).transducer(); }

  /// A copy of the event for each firing. Throws std::out_of_range if the contents are inconsistent and an entry of the
  /// event order names no event.
  std::vector<PulseEchoEvent> eventsInExecutionOrder() const;
  /// The same for the firings of one frame acquisition; throws std::out_of_range for an unknown index, too.
  std::vector<PulseEchoEvent> frameAcquisitionEventsInExecutionOrder(int index) const;
  /// A frame acquisition as its channel data really looks: one event, and one region if it has regions, per firing,
  /// repetitions included. Throws like frameAcquisitionEventsInExecutionOrder, and std::invalid_argument if a fired
  /// event has no region among those of the frame.
  FrameAcquisition effectiveFrameAcquisition(int index) const;

  /// Throws std::invalid_argument unless there are frames and firings, one delay per firing that is not negative, one
  /// transducer, and each frame is fired completely a whole number of times (each of its events equally often).
  void checkConsistency() const;

  /// Reads frames, event order and delays ("nan": no stated delay) and replaces all; without frames or order, or with a
  /// value among order and delays that can't be read, nothing changes. Inconsistent contents are logged and kept.
  /// Throws what FrameAcquisition::configure throws, with nothing changed.
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;

  /// A NaN in a delay differs from everything.
  bool operator==(const AcquisitionSequence& other) const;
  bool operator!=(const AcquisitionSequence& other) const { return !(*this == other); }

private:
  void checkFrameIndex(int index, const char* message) const;

  std::vector<FrameAcquisition> m_frameAcquisitions;
  std::vector<EventIndex> m_eventOrder;
  std::vector<std::optional<double>> m_interEventDelays;
};

} // namespace Kelvaris::US
