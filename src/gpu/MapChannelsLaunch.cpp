#include "gpu/MapChannelsLaunch.h"

#include "gpu/MapChannelsKernel.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <emmintrin.h>
#include <vector>

// Every line of the input is read as it lies in memory, once, whichever axis it runs along; how its samples are
// distributed depends on that axis. Lines of channels and of events go through a small buffer that stays in the
// first-level cache, lines of samples are transposed in registers.

namespace Kelvaris::US::GPU {
namespace {

constexpr int kLineBytes = 64;    ///< a line of the cache
constexpr int kSampleBytes = 256; ///< of a channel's samples in a tile, where they lie side by side
constexpr int kChannelTile = 32;  ///< channels of such a tile
constexpr int kRowTile = 64;      ///< samples of a tile of lines of channels
constexpr int kEventRowTile = 16; ///< samples of a tile of lines of events

/// Stands for a channel that nothing comes from.
alignas(16) constexpr std::array<char, kSampleBytes> kZeros{};

const char* inputAddress(const MapChannelsArguments& a, int channel, int sample, int event) {
  const InputPlace p = inputPlace(a, channel, sample, event);
  return CUDA::elementAddress(a.input, p.axis[0], p.axis[1], p.axis[2]);
}

int inputChannels(const MapChannelsArguments& a) {
  const int extent[] = {a.input.width, a.input.height, a.input.slices};
  return extent[a.channelsAxis];
}

/// The input channel of output channel c in event v; the number of input channels if there is none.
int sourceChannel(const MapChannelsArguments& a, int c, int v) {
  int channel = 0;
  return mappedChannel(a, c, v, channel) && isInside(a.input, inputPlace(a, channel, 0, v)) ? channel
                                                                                            : inputChannels(a);
}

template <typename T> T* outputRow(const MapChannelsArguments& a, int c, int s, int v) {
  return reinterpret_cast<T*>(CUDA::elementAddress(a.output, c, s, v));
}

/// target[i] = elements[places[i]].
template <typename T> void gather(const T* elements, const unsigned* places, std::size_t count, T* target) {
#pragma GCC unroll 8
  for (std::size_t i = 0; i < count; ++i)
    target[i] = elements[places[i]];
}

/// Elements in a vector register, and the side of the blocks that are transposed.
template <typename T> constexpr int kBlock = static_cast<int>(16 / sizeof(T));

/// Element j of the lines 0 to kBlock - 1 becomes element 0 to kBlock - 1 at target + j pitch.
template <typename T>
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
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + j * pitch), b[j]);
}

/// What is written one after the other: the rows of a few lines, or a few rows of all lines. Better is what keeps the
/// side whose addresses differ by powers of two within the ways of the cache.
enum class Order { FewLines, FewRows };

/// Element j of line i becomes element i at target + j pitch.
template <typename T, Order order>
void transposeLines(const char* const* lines, int lineCount, int count, T* target, std::ptrdiff_t pitch) {
  constexpr int n = kBlock<T>;
  char* const start = reinterpret_cast<char*>(target);
  const int blockLines = lineCount / n * n, blockCount = count / n * n;
  const auto transposeAt = [&](int i, int j) {
    std::array<const char*, n> block;
    for (int k = 0; k < n; ++k)
      block[static_cast<std::size_t>(k)] = lines[i + k] + j * static_cast<std::ptrdiff_t>(sizeof(T));
    transposeBlock<T>(block.data(), start + j * pitch + i * static_cast<std::ptrdiff_t>(sizeof(T)), pitch);
  };
  if constexpr (order == Order::FewLines) {
    for (int i = 0; i < blockLines; i += n)
      for (int j = 0; j < blockCount; j += n)
        transposeAt(i, j);
  } else {
    for (int j = 0; j < blockCount; j += n)
      for (int i = 0; i < blockLines; i += n)
        transposeAt(i, j);
  }
  for (int j = 0; j < count; ++j)
    for (int i = j < blockCount ? blockLines : 0; i < lineCount; ++i)
      std::memcpy(start + j * pitch + i * static_cast<std::ptrdiff_t>(sizeof(T)),
                  lines[i] + j * static_cast<std::ptrdiff_t>(sizeof(T)), sizeof(T));
}

/// Lines of samples.
template <typename T> void mapSamplesFirst(const MapChannelsArguments& a) {
  constexpr int sampleTile = static_cast<int>(kSampleBytes / sizeof(T));
  const KernelBuffer& o = a.output;
  const int sampleTiles = (o.height - 1) / sampleTile + 1;
#pragma omp parallel for collapse(2) schedule(static)
  for (int v = 0; v < o.slices; ++v)
    for (int t = 0; t < sampleTiles; ++t) {
      const int s0 = t * sampleTile, samples = std::min(sampleTile, o.height - s0);
      for (int c0 = 0; c0 < o.width; c0 += kChannelTile) {
        const int channels = std::min(kChannelTile, o.width - c0);
        std::array<const char*, kChannelTile> lines;
        for (int i = 0; i < channels; ++i) {
          const int source = sourceChannel(a, c0 + i, v);
          lines[static_cast<std::size_t>(i)] =
              source < inputChannels(a) ? inputAddress(a, source, s0, v) : kZeros.data();
        }
        transposeLines<T, Order::FewLines>(lines.data(), channels, samples, outputRow<T>(a, c0, s0, v), o.rowPitch);
      }
    }
}

/// Lines of channels.
template <typename T> void mapChannelsFirst(const MapChannelsArguments& a) {
  const KernelBuffer& o = a.output;
  const auto width = static_cast<std::size_t>(o.width), inputWidth = static_cast<std::size_t>(inputChannels(a));
  const int sampleTiles = (o.height - 1) / kRowTile + 1;
#pragma omp parallel
  {
    std::vector<T> line(inputWidth + 1); // its last element is 0
    std::vector<unsigned> source(width);
#pragma omp for collapse(2) schedule(static)
    for (int v = 0; v < o.slices; ++v)
      for (int t = 0; t < sampleTiles; ++t) {
        bool isInOrder = o.width <= inputChannels(a);
        for (int c = 0; c < o.width; ++c) {
          const int channel = sourceChannel(a, c, v);
          source[static_cast<std::size_t>(c)] = static_cast<unsigned>(channel);
          isInOrder = isInOrder && channel == c;
        }
        const int end = std::min((t + 1) * kRowTile, o.height);
        for (int s = t * kRowTile; s < end; ++s) {
          T* const target = outputRow<T>(a, 0, s, v);
          const char* const samples = inputAddress(a, 0, s, v);
          if (isInOrder) {
            std::memcpy(target, samples, width * sizeof(T));
            continue;
          }
          if (s + 1 < end) { // the next line may lie far away
            const char* const next = inputAddress(a, 0, s + 1, v);
            for (std::size_t byte = 0; byte < inputWidth * sizeof(T); byte += kLineBytes)
              __builtin_prefetch(next + byte);
          }
          std::memcpy(line.data(), samples, inputWidth * sizeof(T));
          gather(line.data(), source.data(), width, target);
        }
      }
  }
}

/// Lines of events, as much of them as fills a line of the cache.
template <typename T> void mapEventsFirst(const MapChannelsArguments& a) {
  constexpr int events = static_cast<int>(kLineBytes / sizeof(T));
  const KernelBuffer& o = a.output;
  const auto width = static_cast<std::size_t>(o.width);
  const int inputCount = inputChannels(a);
  const int rowTiles = (o.height - 1) / kEventRowTile + 1;
  const std::ptrdiff_t slicePitch = o.height * o.rowPitch;

  // Where the elements of a row of the output stand among the lines of the input's channels, behind which there is one
  // of zeros.
  std::vector<unsigned> elements(width * static_cast<std::size_t>(o.slices));
  std::vector<char> isUniform(static_cast<std::size_t>((o.slices - 1) / events + 1), 1);
  for (int v = 0; v < o.slices; ++v)
    for (std::size_t c = 0; c < width; ++c) {
      const std::size_t i = static_cast<std::size_t>(v) * width + c;
      elements[i] = static_cast<unsigned>(sourceChannel(a, static_cast<int>(c), v) * events + v % events);
      if (v % events > 0 && elements[i] != elements[i - width] + 1) isUniform[static_cast<std::size_t>(v / events)] = 0;
    }

#pragma omp parallel
  {
    std::vector<T> lines(static_cast<std::size_t>((inputCount + 1) * events));
    std::vector<const char*> sources(width);
#pragma omp for schedule(static)
    for (int t = 0; t < rowTiles; ++t)
      for (int v0 = 0; v0 < o.slices; v0 += events) {
        const int count = std::min(events, o.slices - v0);
        const unsigned* const first = elements.data() + static_cast<std::size_t>(v0) * width;
        for (std::size_t c = 0; c < width; ++c)
          sources[c] = reinterpret_cast<const char*>(lines.data() + first[c]);
        for (int s = t * kEventRowTile; s < std::min((t + 1) * kEventRowTile, o.height); ++s) {
          const char* channel = inputAddress(a, 0, s, v0);
          const std::ptrdiff_t step = inputAddress(a, 1, s, v0) - channel;
          for (int m = 0; m < inputCount; ++m, channel += step)
            if (count == events)
              std::memcpy(lines.data() + m * events, channel, kLineBytes);
            else
              std::memcpy(lines.data() + m * events, channel, static_cast<std::size_t>(count) * sizeof(T));
          if (isUniform[static_cast<std::size_t>(v0 / events)]) {
            transposeLines<T, Order::FewRows>(sources.data(), o.width, count, outputRow<T>(a, 0, s, v0), slicePitch);
            continue;
          }
          for (int i = 0; i < count; ++i) {
            gather(lines.data(), first + static_cast<std::size_t>(i) * width, width, outputRow<T>(a, 0, s, v0 + i));
          }
        }
      }
  }
}

} // namespace

template <typename T> void mapChannelsOnCpu(const MapChannelsArguments& a) {
  if (a.channelsAxis == 0)
    mapChannelsFirst<T>(a);
  else if (a.fastTimeAxis == 0)
    mapSamplesFirst<T>(a);
  else
    mapEventsFirst<T>(a);
}

template void mapChannelsOnCpu<float>(const MapChannelsArguments&);
template void mapChannelsOnCpu<float2>(const MapChannelsArguments&);
template void mapChannelsOnCpu<short>(const MapChannelsArguments&);
template void mapChannelsOnCpu<short2>(const MapChannelsArguments&);

} // namespace Kelvaris::US::GPU
