#pragma once

namespace Kelvaris::US {

class FrameAcquisition;

/// Sizes of the simulated channel data of one frame, all but the events by its first event.
struct FrameSizes {
  int channels; ///< width of the receive aperture
  int samples;  ///< end time x sampling frequency, without the fraction; sample 0 is time 0
  int events;
  int transmitElements; ///< width of the transmit aperture, 0 for none
  int pulseLength;      ///< in samples, rounded; at most `samples`, since the rest of a pulse is never seen

  /// Throws std::invalid_argument, with the value and what would be right, if the frame has no events, an event
  /// receives with elements beyond the array, or there would be no channels or samples, or more samples than an image
  /// can have.
  explicit FrameSizes(const FrameAcquisition& frame);
};

} // namespace Kelvaris::US
