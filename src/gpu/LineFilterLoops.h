#pragma once

#include "gpu/LineFilter.h"

#include <algorithm>
#include <omp.h>
#include <vector>

// Loops of the CPU executor's launches that filter along the lines of an image, on all cores.

namespace Kelvaris::US::GPU {

/// Calls f(other, begin, end) for all outputs with y (z) from `begin` to end - 1 and with z (y) `other`, for lines
/// along axis 1 (2).
template <typename F> void forEachRows(int axis, const KernelBuffer& output, const F& f) {
  constexpr int rowsPerTask = 32; // their taps overlap, so the rows of the input stay in the cache
  const int outputs = extentAlong(axis, output), others = extentAlong(3 - axis, output);
  const int tasks = (outputs - 1) / rowsPerTask + 1;
#pragma omp parallel for collapse(2) schedule(dynamic)
  for (int other = 0; other < others; ++other)
    for (int task = 0; task < tasks; ++task) {
      const int begin = task * rowsPerTask;
      f(other, begin, std::min(begin + rowsPerTask, outputs));
    }
}

/// Calls f(x, y, z, scratch) for the first output of every line along `axis`, with a copy of `scratch` for each thread.
template <typename F>
void forEachLine(int axis, const KernelBuffer& output, const std::vector<float>& scratch, const F& f) {
  // The lines start in the plane of the two other axes.
  const int axisU = axis == 0 ? 1 : 0, axisV = axis == 2 ? 1 : 2;
  const int extentU = extentAlong(axisU, output), extentV = extentAlong(axisV, output);
  std::vector<std::vector<float>> copies(static_cast<std::size_t>(omp_get_max_threads()), scratch);
#pragma omp parallel for collapse(2) schedule(dynamic)
  for (int v = 0; v < extentV; ++v)
    for (int u = 0; u < extentU; ++u)
      f(axis == 0 ? 0 : u,
        axis == 0   ? u
        : axis == 1 ? 0
                    : v,
        axis == 2 ? 0 : v, copies[static_cast<std::size_t>(omp_get_thread_num())]);
}

} // namespace Kelvaris::US::GPU
