#pragma once

#include "CUDA/VectorTypes.h"
#include "gpu/MapChannelsArguments.h"

// Channel mapping and transposition, one thread per output element (c, s, v): channel, sample, event.
//
//   out(c, s, v) = in(m, s, v),   m = table(c, v)
//
// where the three coordinates of `in` stand on the axes that carry channels, fast time and slow time there. The result
// is zero for a cell (c, v) outside the table, and where a coordinate lies beyond the input. No arithmetic is done on
// the samples.
//
// Grid: at least the extent of `output`; threads outside leave. No shared memory, no barriers; a thread writes its own
// element and nothing else, and its inputs are not written during the launch.
//
//   parameter                                 type                                        shape
//   input                                     buffer of T: float, short, float2, short2   any order of the axes
//   output                                    buffer of T                                 channels x samples x events
//   table                                     int buffer, no entry negative               channels x events x 1
//   channelsAxis, fastTimeAxis, slowTimeAxis  int, a permutation of 0, 1, 2

namespace Kelvaris::US::GPU {

using CUDA::float2;
using CUDA::KernelBuffer;
using CUDA::short2;

inline namespace KELVARIS_ARCH {

/// Coordinates in the input.
struct InputPlace {
  int axis[3];
};

KELVARIS_KERNEL InputPlace inputPlace(const MapChannelsArguments& a, int channel, int sample, int event) {
  InputPlace place{{1, 1, 1}};
  place.axis[a.channelsAxis] = channel;
  place.axis[a.fastTimeAxis] = sample;
  place.axis[a.slowTimeAxis] = event;
  return place;
}

KELVARIS_KERNEL bool isInside(const KernelBuffer& input, const InputPlace& p) {
  return p.axis[0] < input.width && p.axis[1] < input.height && p.axis[2] < input.slices;
}

/// The input channel of output channel c in event v; false if there is none.
KELVARIS_KERNEL bool mappedChannel(const MapChannelsArguments& a, int c, int v, int& channel) {
  if (c >= a.table.width || v >= a.table.height) return false;
  channel = CUDA::readElement<int>(a.table, c, v, 0);
  return true;
}

/// The work of thread (c, s, v).
template <typename T> KELVARIS_KERNEL void mapChannelsThread(const MapChannelsArguments& a, int c, int s, int v) {
  if (c >= a.output.width || s >= a.output.height || v >= a.output.slices) return;
  T value{};
  int channel = 0;
  if (mappedChannel(a, c, v, channel)) {
    const InputPlace p = inputPlace(a, channel, s, v);
    if (isInside(a.input, p)) value = CUDA::readElement<T>(a.input, p.axis[0], p.axis[1], p.axis[2]);
  }
  CUDA::writeElement<T>(a.output, c, s, v, value);
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
