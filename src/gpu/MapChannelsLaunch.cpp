#include "gpu/MapChannelsLaunch.h"

#include "gpu/MapChannelsKernel.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace Kelvaris::US::GPU {
namespace {

/// Threads of a tile along channels and samples. Where the axes change places, the lines that a tile reads and those
/// that it writes stay in the first-level cache until all of their elements have been used.
constexpr int kTile = 32;
/// Events of a tile, where they are neighbours in the input.
constexpr int kEventTile = 16;

template <typename T> T load(const char* address) {
  T value;
  std::memcpy(&value, address, sizeof value);
  return value;
}

/// The threads with c from c0 on, s from s0 on, of one event. What is the same for all samples of a channel is worked
/// out once: where the channel's line in the input begins, and how far its samples are apart.
template <typename T, int channels>
void mapTile(const MapChannelsArguments& a, int c0, int channelCount, int s0, int sampleCount, int v) {
  const auto address = [&](int channel, int sample) {
    const InputPlace p = inputPlace(a, channel, sample, v);
    return CUDA::elementAddress(a.input, p.axis[0], p.axis[1], p.axis[2]);
  };
  const char* const start = address(0, 0);
  const std::ptrdiff_t step = address(0, 1) - start;
  std::array<const char*, channels> lines;
  std::array<bool, channels> mapped;
  bool allMapped = true, contiguous = true;
  for (int i = 0; i < channelCount; ++i) {
    const auto n = static_cast<std::size_t>(i);
    int channel = 0;
    mapped[n] = mappedChannel(a, c0 + i, v, channel) && isInside(a.input, inputPlace(a, channel, s0, v));
    lines[n] = mapped[n] ? address(channel, s0) : start;
    allMapped = allMapped && mapped[n];
    contiguous = contiguous && lines[n] == lines[0] + i * static_cast<std::ptrdiff_t>(sizeof(T));
  }
  for (int s = 0; s < sampleCount; ++s) {
    T* const target = reinterpret_cast<T*>(CUDA::elementAddress(a.output, c0, s0 + s, v));
    const std::ptrdiff_t offset = s * step;
    if (allMapped && contiguous) {
      std::memcpy(target, lines[0] + offset, static_cast<std::size_t>(channelCount) * sizeof(T));
    } else {
      for (int i = 0; i < channelCount; ++i)
        target[i] = load<T>(lines[static_cast<std::size_t>(i)] + offset);
      for (int i = 0; !allMapped && i < channelCount; ++i)
        if (!mapped[static_cast<std::size_t>(i)]) target[i] = T{};
    }
  }
}

template <typename T, int channelTile> void mapInTiles(const MapChannelsArguments& a, int eventTile) {
  const KernelBuffer& o = a.output;
  const int eventTiles = (o.slices - 1) / eventTile + 1, sampleTiles = (o.height - 1) / kTile + 1;
#pragma omp parallel for collapse(2) schedule(static)
  for (int e = 0; e < eventTiles; ++e)
    for (int t = 0; t < sampleTiles; ++t) {
      const int s0 = t * kTile, samples = std::min(kTile, o.height - s0);
      for (int c0 = 0; c0 < o.width; c0 += channelTile)
        for (int v = e * eventTile; v < std::min((e + 1) * eventTile, o.slices); ++v)
          mapTile<T, channelTile>(a, c0, std::min(channelTile, o.width - c0), s0, samples, v);
    }
}

} // namespace

template <typename T> void mapChannelsOnCpu(const MapChannelsArguments& a) {
  // Rows of channels are read and written as they lie, so their tiles may be long.
  if (a.channelsAxis == 0)
    mapInTiles<T, 512>(a, 1);
  else
    mapInTiles<T, kTile>(a, a.slowTimeAxis == 0 ? kEventTile : 1);
}

template void mapChannelsOnCpu<float>(const MapChannelsArguments&);
template void mapChannelsOnCpu<float2>(const MapChannelsArguments&);
template void mapChannelsOnCpu<short>(const MapChannelsArguments&);
template void mapChannelsOnCpu<short2>(const MapChannelsArguments&);

} // namespace Kelvaris::US::GPU
