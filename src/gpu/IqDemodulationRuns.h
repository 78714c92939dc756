#pragma once

#include <cstddef>

namespace Kelvaris::US::GPU {

/// One line of samples and the mixing signal for the CPU executor, as RunLayout lays them out.
struct IqDemodulationRuns {
  const float* samples; ///< number 0 of run 0
  const float* inPhase; ///< the mixing signal, likewise
  const float* quadrature;
  const std::ptrdiff_t* offsets; ///< from number q D to number q D + k, for -L / 2 <= k < L - L / 2
};

} // namespace Kelvaris::US::GPU
