#include "gpu/BeamformingLaunch.h"

#include "CUDA/CpuLaunch.h"
#include "CUDA/DeviceMemory.h"
#include "gpu/ChannelData.h"

#include <algorithm>
#include <cstdint>

namespace Kelvaris::US::GPU {

// The builds of BeamformingKernelCpu.cpp.
#define KELVARIS_VARIANT(arch)                                                                                         \
  namespace arch {                                                                                                     \
  template <typename T> void beamformTile(const BeamformingArguments& arguments, const CUDA::Tile& tile);              \
  int tileHeight();                                                                                                    \
  }
KELVARIS_VARIANT(cpu_v2)
KELVARIS_VARIANT(cpu_v3)
KELVARIS_VARIANT(cpu_v4)
#undef KELVARIS_VARIANT

namespace {

/// True if putting each channel's samples side by side costs less than it saves. It takes the time of a few evaluations
/// a sample and makes an evaluation about a quarter faster, since both samples of an interpolation then take one read.
bool isWorthReordering(const BeamformingArguments& a) {
  if (a.fastTimeAxis == 0) return false;
  const auto volume = [](const CUDA::KernelBuffer& b) {
    return static_cast<double>(b.width) * static_cast<double>(b.height) * static_cast<double>(b.slices);
  };
  const ChannelData data{a.channelData, a.channelsAxis, a.fastTimeAxis, a.slowTimeAxis};
  const int eventsPerPixel = a.workmode == Workmode::CoherentCompound ? data.numEvents() : 1;
  // Apertures have about a quarter of the elements on average.
  const double evaluations = volume(a.output) * eventsPerPixel * a.numElements / 4;
  return evaluations > 4 * volume(a.channelData);
}

/// The same launch on channel data with the samples along x, the channels along y, in `memory`.
template <typename T> BeamformingArguments reordered(const BeamformingArguments& a, CUDA::DeviceMemory& memory) {
  const ChannelData data{a.channelData, a.channelsAxis, a.fastTimeAxis, a.slowTimeAxis};
  const int numSamples = data.numSamples(), numChannels = data.extent(a.channelsAxis), numEvents = data.numEvents();
  // One cache line more than the samples take, so that channels don't all begin in the same set of the cache.
  const std::size_t pitch = (static_cast<std::size_t>(numSamples) * sizeof(T) + 63) / 64 * 64 + 64;
  memory = CUDA::DeviceMemory(pitch * static_cast<std::size_t>(numChannels) * static_cast<std::size_t>(numEvents));

  BeamformingArguments result = a;
  result.channelData = {numSamples, numChannels, numEvents, memory.data(), static_cast<std::int64_t>(pitch), sizeof(T),
                        0};
  result.fastTimeAxis = 0;
  result.channelsAxis = 1;
  result.slowTimeAxis = 2;

  constexpr int blockChannels = 16, blockSamples = 64; // of each a cache line or so, all in the first-level cache
  const std::int64_t channelStride = data.stride(a.channelsAxis), sampleStride = data.stride(a.fastTimeAxis);
  const CUDA::LaunchShape blocks{{1, (numChannels + blockChannels - 1) / blockChannels, numEvents}, {1, 1, 1}};
  CUDA::forEachThread(blocks, [&](int, int block, int event) {
    const SampleCoordinates first(data, 0, 0, event);
    const char* source = CUDA::elementAddress(data.buffer, first.axis[0], first.axis[1], first.axis[2]);
    const int channelBegin = block * blockChannels, channelEnd = std::min(numChannels, channelBegin + blockChannels);
    for (int sampleBegin = 0; sampleBegin < numSamples; sampleBegin += blockSamples)
      for (int channel = channelBegin; channel < channelEnd; ++channel) {
        T* target = reinterpret_cast<T*>(CUDA::elementAddress(result.channelData, 0, channel, event));
        const int sampleEnd = std::min(numSamples, sampleBegin + blockSamples);
        for (int k = sampleBegin; k < sampleEnd; ++k)
          target[k] = *reinterpret_cast<const T*>(source + channel * channelStride + k * sampleStride);
      }
  });
  return result;
}

} // namespace

template <typename T>
void beamformOnCpu(const CUDA::LaunchShape& shape, const BeamformingArguments& arguments, CUDA::CpuVariant variant) {
  const auto beamformTile =
      CUDA::chooseVariant(variant, cpu_v2::beamformTile<T>, cpu_v3::beamformTile<T>, cpu_v4::beamformTile<T>);
  const auto tileHeight = CUDA::chooseVariant(variant, cpu_v2::tileHeight, cpu_v3::tileHeight, cpu_v4::tileHeight);
  CUDA::DeviceMemory memory;
  const BeamformingArguments a = isWorthReordering(arguments) ? reordered<T>(arguments, memory) : arguments;
  CUDA::forEachTile(shape, tileHeight(), [&](const CUDA::Tile& tile) { beamformTile(a, tile); });
}

template void beamformOnCpu<short>(const CUDA::LaunchShape&, const BeamformingArguments&, CUDA::CpuVariant);
template void beamformOnCpu<float>(const CUDA::LaunchShape&, const BeamformingArguments&, CUDA::CpuVariant);
template void beamformOnCpu<CUDA::short2>(const CUDA::LaunchShape&, const BeamformingArguments&, CUDA::CpuVariant);
template void beamformOnCpu<CUDA::float2>(const CUDA::LaunchShape&, const BeamformingArguments&, CUDA::CpuVariant);

} // namespace Kelvaris::US::GPU
