// IQ demodulation of channel data with 101 taps, from device buffer to device buffer, per executor. `taps` are terms of
// the sum per second (outputs x taps; a term has a sample, a complex mixing value and a filter coefficient);
// `operations` are multiplications and multiply-adds of floats, four a term, to be held against the ceiling; bytes are
// those of input and output. The CPU column counts all threads.

#include "Ceilings.h"

#include "CUDA/Device.h"
#include "CUDA/DeviceBufferPool.h"
#include "gpu/IqDemodulation.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>

namespace Kelvaris::US {
namespace {

constexpr int kChannels = 128, kSamples = 2048, kEvents = 8, kTaps = 101;

template <typename T> SharedImage channelData(const Eigen::Vector3i& dimensions) {
  auto image = std::make_shared<TypedImage<T>>(dimensions.x(), dimensions.y(), dimensions.z());
  std::mt19937 random(1);
  std::uniform_real_distribution<double> uniform(-10000.0, 10000.0);
  for (std::size_t i = 0; i < image->size(); ++i)
    (*image)[i] = static_cast<T>(uniform(random));
  return SharedImage(image);
}

template <typename T>
void demodulate(benchmark::State& state, const Eigen::Vector3i& dimensions, int axis, int factor) {
  const CUDA::DeviceBufferPool::ActivationGuard pool;
  const SharedImage image = channelData<T>(dimensions);
  const GPU::IqDemodulation demodulator;
  const auto run = [&] { return demodulator.demodulate(image, 40e6, 5e6, factor, axis, 1.0, kTaps); };
  const auto outputs = static_cast<double>(run()->descriptor().elementCount() / 2);
  for ([[maybe_unused]] auto _ : state) {
    const auto result = run();
    if (CUDA::Device::isCuda()) result->mem(); // waits for the kernel; includes the download
    benchmark::DoNotOptimize(result);
  }
  const double runs = static_cast<double>(state.iterations()), terms = runs * outputs * kTaps;
  state.counters["taps"] = benchmark::Counter(terms, benchmark::Counter::kIsRate);
  state.counters["operations"] = benchmark::Counter(4.0 * terms, benchmark::Counter::kIsRate);
  state.SetBytesProcessed(
      static_cast<std::int64_t>(runs * sizeof(T) * (static_cast<double>(dimensions.prod()) + 2.0 * outputs)));
}

template <typename T> void registerRows(const std::string& type) {
  const struct {
    const char* name;
    Eigen::Vector3i dimensions;
    int axis;
  } layouts[] = {{"128 channels x 2048 samples x 8 events", {kChannels, kSamples, kEvents}, 1},
                 {"samples x channels x events", {kSamples, kChannels, kEvents}, 0},
                 {"channels x events x samples", {kChannels, kEvents, kSamples}, 2},
                 {"one line of 2^20 samples", {1, 1 << 20, 1}, 1}};
  for (const auto& layout : layouts)
    for (const int factor : {1, 4})
      benchmark::RegisterBenchmark((type + ", " + layout.name + ", factor " + std::to_string(factor)).c_str(),
                                   demodulate<T>, layout.dimensions, layout.axis, factor)
          ->MeasureProcessCPUTime()
          ->UseRealTime()
          ->Unit(benchmark::kMillisecond);
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
