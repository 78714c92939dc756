#pragma once

namespace Kelvaris::US::GPU {

/// What the beamformer gives per pixel: a sum with or without a window over the receive aperture, or a property of that
/// aperture for debugging. Other values act as UnweightedDas.
enum class BeamformerType : int {
  UnweightedDas = 0,
  HammingDas = 1,
  TukeyDas = 2,
  DebugApertureSize = 3,
  DebugApertureStart = 4,
  DebugApertureEnd = 5,
};

} // namespace Kelvaris::US::GPU
