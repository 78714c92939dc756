#pragma once

#include <cstddef>

namespace Kelvaris::US::GPU {

/// One line of samples and the mixing signal for the CPU executor, split by index modulo the decimation factor D:
/// number q D + r of the line is number q of run r, so that samples D apart are neighbours. Before and after each run
/// there is room for a bundle of lanes, which is read but never counts.
struct IqDemodulationRuns {
  static constexpr int margin = 64; ///< lanes of the largest bundle

  const float* samples; ///< number 0 of run 0
  const float* inPhase; ///< the mixing signal, likewise
  const float* quadrature;
  const std::ptrdiff_t* offsets; ///< from number q D to number q D + k, for -L / 2 <= k < L - L / 2
};

} // namespace Kelvaris::US::GPU
