#pragma once

#include "Core/Properties.h"

#include <optional>
#include <string>
#include <vector>

namespace Kelvaris::CommandLine {

/// What makes a frame; more than this is nonsense that would take memory before anything noticed.
struct AcquisitionLimits {
  static constexpr int maxElements = 16384;
  static constexpr int maxEvents = 65536;
  static constexpr int maxEventElements = 1 << 24; ///< events times elements of the array
};

/// What a recording must fit, from the stored form of a frame acquisition.
struct AcquisitionSummary {
  struct Event {
    int transmitFirst = 0;
    int transmitLast = -1;
    int receiveFirst = 0;
    int receiveLast = -1;
    std::vector<int> channels; ///< of the elements of the receive aperture, in ascending order
  };

  int numElements = 0;
  double pitch = 0.0;           ///< mm
  std::optional<double> radius; ///< of curvature of a convex array, mm
  int eventType = 0;            ///< of the first event: 0 focused, 1 plane wave, 2 diverging wave
  double pulseFrequency = 0.0;  ///< Hz, of the first event
  int numTransmitting = 0;      ///< elements in the first event
  int numEvents = 0;
  int numChannels = 0;            ///< one more than the highest
  double samplingFrequency = 0.0; ///< Hz, of the first event
  std::optional<long> samples;    ///< in the longest recording; only where the events are stored one by one
  std::vector<Event> events;      ///< empty where parameters are stored
};

/// Reads and checks the stored form before a model is made of it. Throws std::invalid_argument that names the event and
/// the value: for a missing or broken transducer, parameters or events that aren't there, an aperture or a channel
/// table that doesn't fit the array, frequencies and times that are no sensible numbers.
AcquisitionSummary summarizeAcquisition(const Properties& properties);

/// "linear array of 64 elements, 0.8 mm apart".
std::string describeArray(const AcquisitionSummary& summary);
/// "5 plane waves of 3 MHz, 64 elements send; 64 channels of 890 samples at 12 MHz".
std::string describeEvents(const AcquisitionSummary& summary);

} // namespace Kelvaris::CommandLine
