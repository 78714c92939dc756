#pragma once

#include "CUDA/Lanes.h"
#include "gpu/BeamformingKernel.h"

// The memory accesses of the beamforming kernel for a bundle of lanes: neighbouring rows of one column. Everything else
// is the text of BeamformingKernel.h. All lanes share the event and the element, so records, tables and element
// positions stay scalars, and only samples are gathered.

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

using CUDA::highShorts;
using CUDA::LaneAddresses;
using CUDA::LaneMask;
using CUDA::Lanes;
using CUDA::lowShorts;

/// Positions of the rows from y on; NaN for rows that lie outside.
KELVARIS_KERNEL Point<Lanes> samplePosition(const BeamformingArguments& a, int x, int y, int event, LaneMask inside) {
  alignas(64) float px[Lanes::count], py[Lanes::count];
  for (int i = 0; i < Lanes::count; ++i) {
    const Point<float> p =
        inside.lane(i) ? samplePosition(a, x, y + i, event, true) : Point<float>{notANumber(), notANumber()};
    px[i] = p.x;
    py[i] = p.y;
  }
  return {Lanes::load(px), Lanes::load(py)};
}

template <typename T>
KELVARIS_KERNEL void storePixel(const KernelBuffer& output, int x, int y, int z, WorkType<T, Lanes> value,
                                LaneMask inside) {
  constexpr int parts = sizeof(value) / sizeof(Lanes);
  alignas(64) float part[parts][Lanes::count];
  value.re.store(part[0]);
  if constexpr (parts == 2) value.im.store(part[1]);
  for (int i = 0; i < Lanes::count; ++i) {
    if (!inside.lane(i)) continue;
    if constexpr (parts == 2)
      storePixel<T>(output, x, y + i, z, Complex<float>{part[0][i], part[1][i]}, true);
    else
      storePixel<T>(output, x, y + i, z, Real<float>{part[0][i]}, true);
  }
}

// Samples at the addresses and `stride` bytes further on; two in one read where they lie side by side. Reads of short
// samples take 4 bytes, of which the last two may lie beyond the data (DeviceMemory leaves room).

KELVARIS_KERNEL void readPair(const LaneAddresses& at, std::int64_t stride, SamplePair<float, Lanes>& out) {
  if (stride == sizeof(float)) return at.read2(out.lower.re, out.upper.re);
  out = {{at.read1()}, {(at + stride).read1()}};
}
KELVARIS_KERNEL void readPair(const LaneAddresses& at, std::int64_t stride, SamplePair<short, Lanes>& out) {
  const Lanes words = at.read1();
  out = {{lowShorts(words)}, {stride == sizeof(short) ? highShorts(words) : lowShorts((at + stride).read1())}};
}
KELVARIS_KERNEL void readPair(const LaneAddresses& at, std::int64_t stride, SamplePair<short2, Lanes>& out) {
  Lanes lower, upper;
  if (stride == sizeof(short2)) {
    at.read2(lower, upper);
  } else {
    lower = at.read1();
    upper = (at + stride).read1();
  }
  out = {{lowShorts(lower), highShorts(lower)}, {lowShorts(upper), highShorts(upper)}};
}
KELVARIS_KERNEL void readPair(const LaneAddresses& at, std::int64_t stride, SamplePair<float2, Lanes>& out) {
  if (stride == sizeof(float2)) return at.read4(out.lower.re, out.lower.im, out.upper.re, out.upper.im);
  at.read2(out.lower.re, out.lower.im);
  (at + stride).read2(out.upper.re, out.upper.im);
}

template <typename T> class EventSamples<T, Lanes> {
public:
  KELVARIS_KERNEL EventSamples(const ChannelData& data, int event)
      : m_data(data),
        m_event(event),
        m_channelStride(data.stride(data.channelsAxis)),
        m_sampleStride(data.stride(data.fastTimeAxis)) {
    const SampleCoordinates first(data, 0, 0, event);
    m_first = CUDA::elementAddress(data.buffer, first.axis[0], first.axis[1], first.axis[2]);
    m_isDistant = m_sampleStride * data.numSamples() > std::numeric_limits<std::int32_t>::max();
  }

  KELVARIS_KERNEL SamplePair<T, Lanes> readPair(int channel, Lanes k) const {
    SamplePair<T, Lanes> result;
    if (m_isDistant) [[unlikely]]
      readDistant(channel, k, result);
    else
      GPU::readPair(LaneAddresses(m_first + channel * m_channelStride, k, static_cast<int>(m_sampleStride)),
                    m_sampleStride, result);
    return result;
  }

private:
  /// Lane by lane, where 32 bits cannot address a channel's samples.
  [[gnu::noinline]] void readDistant(int channel, Lanes k, SamplePair<T, Lanes>& out) const {
    constexpr int parts = sizeof(WorkType<T, float>) / sizeof(float);
    float index[Lanes::count], values[2 * parts][Lanes::count];
    k.store(index);
    for (int i = 0; i < Lanes::count; ++i) {
      const SamplePair<T, float> pair = EventSamples<T, float>(m_data, m_event).readPair(channel, index[i]);
      values[0][i] = pair.lower.re;
      values[parts][i] = pair.upper.re;
      if constexpr (parts == 2) {
        values[1][i] = pair.lower.im;
        values[3][i] = pair.upper.im;
      }
    }
    out.lower.re = Lanes::load(values[0]);
    out.upper.re = Lanes::load(values[parts]);
    if constexpr (parts == 2) {
      out.lower.im = Lanes::load(values[1]);
      out.upper.im = Lanes::load(values[3]);
    }
  }

  const ChannelData& m_data;
  int m_event;
  const char* m_first;
  std::int64_t m_channelStride, m_sampleStride; ///< bytes
  bool m_isDistant;
};

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
