// Remapping of channel data, from device buffer to device buffer, per executor: every order of the input's axes, with
// channels in order and with a random order for each event. Bytes are those of input and output, to be held against the
// row that copies memory. The CPU column counts all threads.

#include "Ceilings.h"

#include "CUDA/Device.h"
#include "CUDA/DeviceBufferPool.h"
#include "gpu/MapChannelsAndTranspose.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>

namespace Kelvaris::US {
namespace {

constexpr int kChannels = 128, kSamples = 2048, kEvents = 64;

FrameAcquisition acquisition(bool isShuffled) {
  std::mt19937 random(1);
  std::vector<PulseEchoEvent> events(kEvents);
  for (PulseEchoEvent& event : events) {
    event.receive.apertureLast = kChannels - 1;
    std::vector<int>& mapping = event.receive.elementToChannelMapping;
    mapping = calculateElementToChannelMapping(0, kChannels - 1, kChannels);
    if (isShuffled) std::shuffle(mapping.begin(), mapping.end(), random);
  }
  return FrameAcquisition(Transducer(), events);
}

template <typename T> void remap(benchmark::State& state, const ChannelDataLayout& layout, bool isShuffled) {
  const CUDA::DeviceBufferPool::ActivationGuard pool;
  const Eigen::Vector3i extent = layout.packVec(kChannels, kSamples, kEvents);
  auto samples = std::make_shared<TypedImage<T>>(extent.x(), extent.y(), extent.z());
  std::fill_n(samples->pointer(), samples->size(), T{1});
  const SharedImage image(samples);
  const GPU::MapChannelsAndTranspose remapper(acquisition(isShuffled), acquisition(false));
  image.sharedCustom<CUDA::DeviceBufferImage>();
  for ([[maybe_unused]] auto _ : state) {
    const auto result = remapper.mapAndTranspose(image, layout);
    if (CUDA::Device::isCuda()) result->mem(); // waits for the kernel; includes the download
    benchmark::DoNotOptimize(result);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(2 * samples->byteSize()) * state.iterations());
}

template <typename T> void registerRows(const std::string& type) {
  using Axis = ChannelDataLayout::Axis;
  const std::string names[] = {"channels", "samples", "events"};
  Axis axes[] = {Axis::Channels, Axis::FastTime, Axis::SlowTime};
  do {
    std::string name = type;
    for (const Axis axis : axes)
      name += (axis == axes[0] ? ", " : " x ") + names[static_cast<int>(axis)];
    for (const bool isShuffled : {false, true})
      benchmark::RegisterBenchmark((name + (isShuffled ? ", shuffled" : "")).c_str(), remap<T>,
                                   ChannelDataLayout(axes[0], axes[1], axes[2]), isShuffled)
          ->MeasureProcessCPUTime()
          ->UseRealTime()
          ->Unit(benchmark::kMillisecond);
  } while (std::next_permutation(std::begin(axes), std::end(axes)));
}

} // namespace
} // namespace Kelvaris::US

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::AddCustomContext("executor", Kelvaris::CUDA::Device::current().name());
  Kelvaris::US::registerRows<float>("float");
  Kelvaris::US::registerRows<short>("short");
  Kelvaris::Bench::registerCeilings();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
