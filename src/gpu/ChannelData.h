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
  /// Bytes from an element to the next one along the axis, in linear memory.
  KELVARIS_KERNEL std::int64_t stride(int axis) const {
    return axis == 0 ? buffer.elementStride : axis == 1 ? buffer.rowPitch : buffer.height * buffer.rowPitch;
  }
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

/// The samples of one event, read as work values for one thread (F float) or a bundle of lanes.
template <typename T, typename F> class EventSamples;

template <typename T> class EventSamples<T, float> {
public:
  KELVARIS_KERNEL EventSamples(const ChannelData& data, int event) : m_data(data), m_event(event) {}

  /// Samples k and k + 1 of a channel.
  KELVARIS_KERNEL SamplePair<T, float> readPair(int channel, float k) const {
    const SampleCoordinates lower(m_data, channel, static_cast<int>(k), m_event);
    const SampleCoordinates upper(m_data, channel, static_cast<int>(k) + 1, m_event);
    return {read(lower), read(upper)};
  }

private:
  KELVARIS_KERNEL WorkType<T, float> read(const SampleCoordinates& c) const {
    return toWorkType(CUDA::readElement<T>(m_data.buffer, c.axis[0], c.axis[1], c.axis[2]));
  }

  const ChannelData& m_data;
  int m_event;
};

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
