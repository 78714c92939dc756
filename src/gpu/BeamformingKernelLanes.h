#pragma once

#include "CUDA/Lanes.h"
#include "gpu/BeamformingKernel.h"

// The memory accesses of the beamforming kernel for a bundle of lanes: neighbouring rows of one column. Everything else
// is the text of BeamformingKernel.h. All lanes share the event and the element, so records, tables and element
// positions stay scalars, and only samples are gathered.

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

using CUDA::LaneMask;
using CUDA::Lanes;

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

namespace gather {

namespace native = CUDA::native;

KELVARIS_KERNEL Lanes lowHalf(native::Ints words) {
  return native::toFloats(native::shiftRight<16>(native::shiftLeft<16>(words)));
}
KELVARIS_KERNEL Lanes highHalf(native::Ints words) {
  return native::toFloats(native::shiftRight<16>(words));
}

/// Samples at the byte offsets and `stride` bytes further on. Reads of short samples take 4 bytes each.
KELVARIS_KERNEL void pair(const char* base, native::Ints offsets, std::int64_t stride, SamplePair<float, Lanes>& out) {
  if (stride == sizeof(float)) {
    native::Ints low, high;
    native::gather64(base, offsets, low, high);
    out = {{native::asFloats(low)}, {native::asFloats(high)}};
  } else {
    out = {{native::asFloats(native::gather32(base, offsets))},
           {native::asFloats(native::gather32(base + stride, offsets))}};
  }
}
KELVARIS_KERNEL void pair(const char* base, native::Ints offsets, std::int64_t stride, SamplePair<short, Lanes>& out) {
  const native::Ints words = native::gather32(base, offsets);
  if (stride == sizeof(short))
    out = {{lowHalf(words)}, {highHalf(words)}};
  else
    out = {{lowHalf(words)}, {lowHalf(native::gather32(base + stride, offsets))}};
}
KELVARIS_KERNEL void pair(const char* base, native::Ints offsets, std::int64_t stride, SamplePair<short2, Lanes>& out) {
  native::Ints lower, upper;
  if (stride == sizeof(short2)) {
    native::gather64(base, offsets, lower, upper);
  } else {
    lower = native::gather32(base, offsets);
    upper = native::gather32(base + stride, offsets);
  }
  out = {{lowHalf(lower), highHalf(lower)}, {lowHalf(upper), highHalf(upper)}};
}
KELVARIS_KERNEL void pair(const char* base, native::Ints offsets, std::int64_t stride, SamplePair<float2, Lanes>& out) {
  native::Ints re, im;
  native::gather64(base, offsets, re, im);
  out.lower = {native::asFloats(re), native::asFloats(im)};
  native::gather64(base + stride, offsets, re, im);
  out.upper = {native::asFloats(re), native::asFloats(im)};
}

} // namespace gather

/// Samples k and k + 1 per lane.
template <typename T>
KELVARIS_KERNEL SamplePair<T, Lanes> readSamplePair(const ChannelData& data, int channel, Lanes k, int event) {
  const SampleCoordinates c(data, channel, 0, event);
  const char* base = CUDA::elementAddress(data.buffer, c.axis[0], c.axis[1], c.axis[2]);
  const std::int64_t stride = data.fastTimeAxis == 0   ? data.buffer.elementStride
                              : data.fastTimeAxis == 1 ? data.buffer.rowPitch
                                                       : data.buffer.height * data.buffer.rowPitch;
  SamplePair<T, Lanes> result;
  gather::pair(
      base, gather::native::multiply(gather::native::toInts(k.v), gather::native::broadcast(static_cast<int>(stride))),
      stride, result);
  return result;
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
