#pragma once

#include "Core/Properties.h"

#include <optional>
#include <vector>

namespace Kelvaris::CommandLine {

/// The order of firings of frames with events a, b (ensemble size 2) and c, d (ensemble size 1).
enum class FiringOrder {
  PerEvent,   ///< a a b b c d
  PerFrame,   ///< a b a b c d
  Interleaved ///< a c b d a b: the frames in turn, each in the order PerFrame, until all have fired
};

/// A scanner's programme in the terms of its protocol, turned into the stored form of an acquisition sequence.
struct SequenceDesign {
  std::vector<Properties> acquisitions;                       ///< the frames, in the stored form of acquisitions
  std::vector<int> ensembles = {1};                           ///< one for all frames or one a frame
  std::vector<std::optional<double>> delays = {std::nullopt}; ///< after each firing of the frame (s); likewise
  FiringOrder order = FiringOrder::PerFrame;

  /// Throws std::invalid_argument that names the value and what would be right.
  Properties toProperties() const;
};

} // namespace Kelvaris::CommandLine
