#include "gpu/MapChannelsLaunch.h"

#include "gpu/MapChannelsKernel.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>
#include <omp.h>
#include <vector>

// The input is taken in tiles: some samples of all channels in some events. A tile is first copied or transposed into a
// buffer in the processor's cache, where the samples of each channel lie side by side. To map channels there means to
// pick lines, and the picked lines, transposed, are rows of the output. So memory is read and written in long pieces,
// whichever axis lies side by side in the input, and nothing is moved element by element.
//
//   buffer(v, m, s) = in(m, s, v)                 v, s: in the tile; m: input channels, and behind them one of zeros
//   out(c, s, v)    = buffer(v, table(c, v), s)

namespace Kelvaris::US::GPU {
namespace {

constexpr int kLineBytes = 64;                    ///< a line of the cache
constexpr std::int64_t kTileBytes = 128 << 10;    ///< of a tile: half of a small second-level cache
constexpr int kSampleBytes = 512;                 ///< at most, of a channel's samples in a tile
constexpr int kEventBytes = 256;                  ///< at most, of events in a tile where they lie side by side
constexpr int kEventRows = 4;                     ///< at most, events in a tile where they follow row by row
constexpr std::int64_t kStreamedBytes = 16 << 20; ///< larger outputs would only push other data out of the caches

/// The input channel of output channel c in event v; the number of input channels if there is none.
int sourceChannel(const MapChannelsArguments& a, int c, int v, int inputChannels) {
  int channel = 0;
  return mappedChannel(a, c, v, channel) && isInside(a.input, inputPlace(a, channel, 0, v)) ? channel : inputChannels;
}

/// Elements in a vector register, and the side of the blocks that are transposed.
template <typename T> constexpr int kBlock = static_cast<int>(16 / sizeof(T));

/// Element j of line i becomes element i of the line at target + j pitch, for i and j from 0 to kBlock - 1.
/// With `isStreamed` the target must be aligned to 16 bytes and is written past the caches.
template <typename T, bool isStreamed>
KELVARIS_KERNEL void transposeBlock(const char* const* lines, char* target, std::ptrdiff_t pitch) {
  __m128i a[kBlock<T>], b[kBlock<T>];
  for (int i = 0; i < kBlock<T>; ++i)
    a[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lines[i]));
  if constexpr (sizeof(T) == 2) {
    for (int i = 0; i < 4; ++i) {
      b[2 * i] = _mm_unpacklo_epi16(a[2 * i], a[2 * i + 1]);
      b[2 * i + 1] = _mm_unpackhi_epi16(a[2 * i], a[2 * i + 1]);
    }
    for (int half = 0; half < 8; half += 4)
      for (int i = 0; i < 2; ++i) {
        a[half + 2 * i] = _mm_unpacklo_epi32(b[half + i], b[half + i + 2]);
        a[half + 2 * i + 1] = _mm_unpackhi_epi32(b[half + i], b[half + i + 2]);
      }
    for (int i = 0; i < 4; ++i) {
      b[2 * i] = _mm_unpacklo_epi64(a[i], a[i + 4]);
      b[2 * i + 1] = _mm_unpackhi_epi64(a[i], a[i + 4]);
    }
  } else if constexpr (sizeof(T) == 4) {
    const __m128i low01 = _mm_unpacklo_epi32(a[0], a[1]), high01 = _mm_unpackhi_epi32(a[0], a[1]);
    const __m128i low23 = _mm_unpacklo_epi32(a[2], a[3]), high23 = _mm_unpackhi_epi32(a[2], a[3]);
    b[0] = _mm_unpacklo_epi64(low01, low23);
    b[1] = _mm_unpackhi_epi64(low01, low23);
    b[2] = _mm_unpacklo_epi64(high01, high23);
    b[3] = _mm_unpackhi_epi64(high01, high23);
  } else {
    b[0] = _mm_unpacklo_epi64(a[0], a[1]);
    b[1] = _mm_unpackhi_epi64(a[0], a[1]);
  }
  for (int j = 0; j < kBlock<T>; ++j)
    if constexpr (isStreamed)
      _mm_stream_si128(reinterpret_cast<__m128i*>(target + j * pitch), b[j]);
    else
      _mm_storeu_si128(reinterpret_cast<__m128i*>(target + j * pitch), b[j]);
}

/// Element j of line i, which starts at lineAt(i), becomes element i of the line at target + j pitch. Before each step
/// of kBlock elements along the lines, beforeStep(j) is called.
template <typename T, bool isStreamed, typename LineAt, typename BeforeStep>
KELVARIS_KERNEL void transposeLines(const LineAt& lineAt, int lineCount, int count, char* target, std::ptrdiff_t pitch,
                                    const BeforeStep& beforeStep) {
  constexpr int n = kBlock<T>;
  constexpr std::ptrdiff_t size = sizeof(T);
  const int blockLines = lineCount / n * n, blockCount = count / n * n;
  for (int j = 0; j < blockCount; j += n) {
    beforeStep(j);
    for (int i = 0; i < blockLines; i += n) {
      std::array<const char*, n> block;
      for (int k = 0; k < n; ++k)
        block[static_cast<std::size_t>(k)] = lineAt(i + k) + j * size;
      transposeBlock<T, isStreamed>(block.data(), target + j * pitch + i * size, pitch);
    }
  }
  for (int j = blockLines < lineCount ? 0 : blockCount; j < count; ++j)
    for (int i = j < blockCount ? blockLines : 0; i < lineCount; ++i)
      std::memcpy(target + j * pitch + i * size, lineAt(i) + j * size, sizeof(T));
}

/// A line of the cache.
struct alignas(kLineBytes) CacheLine {
  char bytes[kLineBytes];
};

/// An axis of the input.
struct Axis {
  int extent;
  std::ptrdiff_t stride; ///< bytes
};

/// How the input is cut into tiles, and how one lies in the buffer.
struct Tiling {
  Axis channels, samples, events;
  int firstAxis = 0;                   ///< of the input, as ChannelDataLayout counts: 0 channels, 1 samples, 2 events
  int sampleCount = 1, eventCount = 1; ///< of a tile
  std::ptrdiff_t channelPitch = 0, eventPitch = 0; ///< of the buffer, bytes

  std::ptrdiff_t bufferLines() const { return eventCount * eventPitch / kLineBytes; }
};

template <typename T> Tiling tilingOf(const MapChannelsArguments& a) {
  constexpr std::int64_t n = kBlock<T>, size = sizeof(T);
  const KernelBuffer& in = a.input;
  const Axis axes[] = {{in.width, in.elementStride}, {in.height, in.rowPitch}, {in.slices, in.height * in.rowPitch}};
  Tiling t{axes[a.channelsAxis], axes[a.fastTimeAxis], axes[a.slowTimeAxis]};
  t.firstAxis = a.channelsAxis == 0 ? 0 : a.fastTimeAxis == 0 ? 1 : 2;

  // So many pieces of so many samples of all channels as fit into a tile.
  const auto fitting = [&](std::int64_t count, std::int64_t least, std::int64_t most) {
    return static_cast<int>(std::clamp(kTileBytes / (count * t.channels.extent * size), least, most));
  };
  if (a.slowTimeAxis == 0)
    t.eventCount = fitting(n, kLineBytes / size, kEventBytes / size);
  else if (a.slowTimeAxis == 1 && a.channelsAxis == 0)
    t.eventCount = fitting(n, 1, kEventRows);
  t.eventCount = std::min(t.eventCount, t.events.extent);
  t.sampleCount = static_cast<int>(n) * fitting(n * t.eventCount, 1, kSampleBytes / (n * size));

  // Were these pitches powers of two, the lines would push one another out of the cache.
  t.channelPitch = t.sampleCount * size;
  if (t.channelPitch >= 2 * kLineBytes) t.channelPitch += kLineBytes;
  t.eventPitch = (((t.channels.extent + 1) * t.channelPitch / kLineBytes + 1) | 1) * kLineBytes;
  return t;
}

/// Takes the tile that starts at `first` into the buffer, where samples lie side by side in the input.
template <typename T> void copyTile(const Tiling& t, const char* first, int samples, char* buffer) {
  constexpr int ahead = 2;
  const auto bytes = static_cast<std::size_t>(samples) * sizeof(T);
  for (int m = 0; m < t.channels.extent; ++m) {
    const char* const next = first + std::min(m + ahead, t.channels.extent - 1) * t.channels.stride;
    for (std::size_t byte = 0; byte < bytes; byte += kLineBytes)
      __builtin_prefetch(next + byte);
    std::memcpy(buffer + m * t.channelPitch, first + m * t.channels.stride, bytes);
  }
}

/// Element j of line i becomes element i of the line at target + j pitch, for at most kBlock lines. Each step along the
/// lines calls as much of those that begin at `later` into the cache as it uses up itself.
template <typename T>
void transposeGroup(const char* lines, std::ptrdiff_t stride, int lineCount, int count, const char* later, char* target,
                    std::ptrdiff_t pitch) {
  constexpr int n = kBlock<T>, size = sizeof(T);
  const auto lineAt = [=](int i) { return lines + i * stride; };
  const auto prefetch = [=](int j) {
    const int line = j / n % n;
    for (int byte = 0; byte < n * n * size; byte += kLineBytes) // of one line, what n steps read of it
      __builtin_prefetch(later + line * stride + (j - line * n) * size + byte);
  };
  if (lineCount == n) // known to the compiler: one block a step
    transposeLines<T, false>(lineAt, n, count, target, pitch, prefetch);
  else
    transposeLines<T, false>(lineAt, lineCount, count, target, pitch, prefetch);
}

/// The same where channels (or events) lie side by side. Their lines are transposed in groups of kBlock samples at one
/// event (or one channel), in the order in which they lie in memory.
template <typename T> void transposeTile(const Tiling& t, const char* first, int samples, int events, char* buffer) {
  constexpr int n = kBlock<T>, size = sizeof(T), ahead = 2;
  const bool isEventsFirst = t.firstAxis == 2;
  const int lineLength = isEventsFirst ? events : t.channels.extent;
  const int others = isEventsFirst ? t.channels.extent : events;
  const std::ptrdiff_t stride = t.samples.stride, otherStride = (isEventsFirst ? t.channels : t.events).stride;
  const std::ptrdiff_t linePitch = isEventsFirst ? t.eventPitch : t.channelPitch;
  const std::ptrdiff_t otherPitch = isEventsFirst ? t.channelPitch : t.eventPitch;
  const int steps = (samples - 1) / n + 1, groups = others * steps;
  struct Group {
    int other, sample;
  };
  const auto groupAt = [&](int i) {
    return otherStride < stride ? Group{i % others, i / others * n} : Group{i / steps, i % steps * n};
  };
  const auto address = [&](const Group& group) { return first + group.other * otherStride + group.sample * stride; };
  for (int i = 0; i < groups; ++i) {
    const Group group = groupAt(i);
    transposeGroup<T>(address(group), stride, std::min(n, samples - group.sample), lineLength,
                      address(groupAt(std::min(i + ahead, groups - 1))),
                      buffer + group.other * otherPitch + group.sample * size, linePitch);
  }
}

/// `places` are the places in the buffer of all output channels, event by event, from where their event begins.
template <typename T, bool isStreamed>
void mapTiles(const MapChannelsArguments& a, const Tiling& t, const std::vector<std::ptrdiff_t>& places) {
  const KernelBuffer& o = a.output;
  const int eventTiles = (o.slices - 1) / t.eventCount + 1, sampleTiles = (o.height - 1) / t.sampleCount + 1;
  std::vector<CacheLine> buffers(static_cast<std::size_t>(omp_get_max_threads() * t.bufferLines()));
#pragma omp parallel
  {
    char* const buffer = buffers[static_cast<std::size_t>(omp_get_thread_num() * t.bufferLines())].bytes;
#pragma omp for collapse(2) schedule(static)
    for (int e = 0; e < eventTiles; ++e)
      for (int i = 0; i < sampleTiles; ++i) {
        const int v0 = e * t.eventCount, events = std::min(t.eventCount, o.slices - v0);
        const int s0 = i * t.sampleCount, samples = std::min(t.sampleCount, o.height - s0);
        const char* const first = static_cast<const char*>(a.input.data) + v0 * t.events.stride + s0 * t.samples.stride;
        if (t.firstAxis == 1)
          copyTile<T>(t, first, samples, buffer);
        else
          transposeTile<T>(t, first, samples, events, buffer);
        for (int v = 0; v < events; ++v) {
          const std::ptrdiff_t* const place = places.data() + static_cast<std::ptrdiff_t>(v0 + v) * o.width;
          const char* const lines = buffer + v * t.eventPitch;
          transposeLines<T, isStreamed>([=](int c) { return lines + place[c]; }, o.width, samples,
                                        CUDA::elementAddress(o, 0, s0, v0 + v), o.rowPitch, [](int) {});
        }
      }
    if constexpr (isStreamed) _mm_sfence();
  }
}

/// Where all channels keep their places and lie side by side.
void copyRows(const MapChannelsArguments& a, const Tiling& t) {
  const KernelBuffer& o = a.output;
  const auto bytes = static_cast<std::size_t>(o.width * o.elementStride);
#pragma omp parallel for collapse(2) schedule(static)
  for (int v = 0; v < o.slices; ++v)
    for (int s = 0; s < o.height; ++s)
      std::memcpy(CUDA::elementAddress(o, 0, s, v),
                  static_cast<const char*>(a.input.data) + v * t.events.stride + s * t.samples.stride, bytes);
}

} // namespace

template <typename T> void mapChannelsOnCpu(const MapChannelsArguments& a) {
  const KernelBuffer& o = a.output;
  if (o.width < 1 || o.height < 1 || o.slices < 1) return;
  const Tiling t = tilingOf<T>(a);
  std::vector<std::ptrdiff_t> places;
  places.reserve(static_cast<std::size_t>(o.width) * static_cast<std::size_t>(o.slices));
  bool isInOrder = true;
  for (int v = 0; v < o.slices; ++v)
    for (int c = 0; c < o.width; ++c) {
      const int source = sourceChannel(a, c, v, t.channels.extent);
      places.push_back(source * t.channelPitch);
      isInOrder = isInOrder && source == c;
    }
  if (isInOrder && a.channelsAxis == 0) return copyRows(a, t);
  const bool isAligned = (reinterpret_cast<std::uintptr_t>(o.data) | static_cast<std::uintptr_t>(o.rowPitch)) % 16 == 0;
  if (isAligned && o.rowPitch * o.height * o.slices > kStreamedBytes)
    mapTiles<T, true>(a, t, places);
  else
    mapTiles<T, false>(a, t, places);
}

template void mapChannelsOnCpu<float>(const MapChannelsArguments&);
template void mapChannelsOnCpu<float2>(const MapChannelsArguments&);
template void mapChannelsOnCpu<short>(const MapChannelsArguments&);
template void mapChannelsOnCpu<short2>(const MapChannelsArguments&);

} // namespace Kelvaris::US::GPU
