#pragma once

namespace Kelvaris::US::GPU {

/// How an output pixel (x, y, z) maps to events.
enum class Workmode : int {
  PerLine = 0,          ///< event x: one column per event
  CoherentCompound = 1, ///< the sum over all events: one frame
  PerEvent = 2,         ///< event z: one slice per event
};

} // namespace Kelvaris::US::GPU
