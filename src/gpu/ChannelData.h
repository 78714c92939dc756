#pragma once

#include "gpu/Samples.h"

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

/// Channel data of three axes in any order: `channelsAxis`, `fastTimeAxis` and `slowTimeAxis` say which image axis (0
/// x, 1 y, 2 z) carries which.
struct ChannelData {
  KernelBuffer buffer;
  int channelsAxis, fastTimeAxis, slowTimeAxis;

  KELVARIS_KERNEL int extent(int axis) const {
    return axis == 0 ? buffer.width : axis == 1 ? buffer.height : buffer.slices;
  }
  KELVARIS_KERNEL int numSamples() const { return extent(fastTimeAxis); }
  KELVARIS_KERNEL int numEvents() const { return extent(slowTimeAxis); }
};

/// Image coordinates of a sample.
struct SampleCoordinates {
  int axis[3] = {1, 1, 1};

  KELVARIS_KERNEL SampleCoordinates(const ChannelData& data, int channel, int sample, int event) {
    axis[data.channelsAxis] = channel;
    axis[data.fastTimeAxis] = sample;
    axis[data.slowTimeAxis] = event;
  }
};

template <typename T, typename F> struct SamplePair { WorkType<T, F> lower, upper; };

/// Samples k and k + 1 of a channel in an event, as work values.
template <typename T>
KELVARIS_KERNEL SamplePair<T, float> readSamplePair(const ChannelData& data, int channel, float k, int event) {
  const SampleCoordinates c(data, channel, static_cast<int>(k), event);
  const SampleCoordinates d(data, channel, static_cast<int>(k) + 1, event);
  return {toWorkType(CUDA::readElement<T>(data.buffer, c.axis[0], c.axis[1], c.axis[2])),
          toWorkType(CUDA::readElement<T>(data.buffer, d.axis[0], d.axis[1], d.axis[2]))};
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
