#pragma once

namespace Kelvaris::US::GPU {

/// What the beamformer gives per pixel: a sum with or without a window over the receive aperture, or a property of that
/// aperture for debugging. Other values act as Unweighted.
enum class BeamformerType : int {
  Unweighted = 0,
  Hamming = 1,
  Tukey = 2,
  DebugApertureSize = 3,
  DebugApertureStart = 4,
  DebugApertureEnd = 5,
};

} // namespace Kelvaris::US::GPU
