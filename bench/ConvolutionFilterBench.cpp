// The band filter of channel data with 51 taps, from device buffer to device buffer, per executor and axis of fast
// time. `taps` are samples x taps per second, each one multiply-add, to be held against the ceiling of `operations`;
// bytes are those of input and output, to be held against the copying of memory. The CPU column counts all threads.

#include "Ceilings.h"

#include "CUDA/Device.h"
#include "CUDA/DeviceBufferPool.h"
#include "gpu/ConvolutionFilter1D.h"
#include "processing/SignalProcessing.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>

namespace Kelvaris::US {
namespace {

constexpr int kChannels = 128, kSamples = 2048, kEvents = 8, kTaps = 51;

template <typename T> SharedImage channelData(const Eigen::Vector3i& dimensions) {
  auto image = std::make_shared<TypedImage<T>>(dimensions.x(), dimensions.y(), dimensions.z());
  std::mt19937 random(1);
  std::uniform_real_distribution<double> uniform(-10000.0, 10000.0);
  for (std::size_t i = 0; i < image->size(); ++i)
    (*image)[i] = static_cast<T>(uniform(random));
  return SharedImage(image);
}

template <typename T> void filter(benchmark::State& state, const Eigen::Vector3i& dimensions, int axis) {
  const CUDA::DeviceBufferPool::ActivationGuard pool;
  const SharedImage image = channelData<T>(dimensions);
  const GPU::ConvolutionFilter1D filter(
      Signal::createFirFilter(Signal::FilterType::Bandpass, 40e6f, 1.25e6f, 8.75e6f, kTaps, 0));
  filter.apply(image, axis);
  for ([[maybe_unused]] auto _ : state) {
    const auto result = filter.apply(image, axis);
    if (CUDA::Device::isCuda()) result->mem(); // waits for the kernel; includes the download
    benchmark::DoNotOptimize(result);
  }
  const double samples = static_cast<double>(state.iterations()) * dimensions.cast<double>().prod();
  state.counters["taps"] = benchmark::Counter(samples * kTaps, benchmark::Counter::kIsRate);
  state.SetBytesProcessed(static_cast<std::int64_t>(samples * 2 * sizeof(T)));
}

template <typename T> void registerRows(const std::string& type) {
  const struct {
    const char* name;
    Eigen::Vector3i dimensions;
    int axis;
  } layouts[] = {{"128 channels x 2048 samples x 8 events", {kChannels, kSamples, kEvents}, 1},
                 {"samples x channels x events", {kSamples, kChannels, kEvents}, 0},
                 {"channels x events x samples", {kChannels, kEvents, kSamples}, 2}};
  for (const auto& layout : layouts)
    benchmark::RegisterBenchmark((type + ", " + layout.name).c_str(), filter<T>, layout.dimensions, layout.axis)
        ->MeasureProcessCPUTime()
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace
} // namespace Kelvaris::US

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::AddCustomContext("executor", Kelvaris::CUDA::Device::current().name());
  Kelvaris::US::registerRows<short>("short");
  Kelvaris::US::registerRows<float>("float");
  Kelvaris::Bench::registerCeilings();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
