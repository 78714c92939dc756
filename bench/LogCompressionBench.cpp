// Log compression of an envelope image, in bytes read and written per second. One row a combination of input and
// output; "Copy" moves the same bytes and is the machine's ceiling.

#include "imaging/LogCompressionAlgorithm.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>

namespace Kelvaris::US {
namespace {

constexpr int kWidth = 1024, kHeight = 1024;

template <typename T> SharedImage speckle(int channels) {
  auto image = std::make_shared<TypedImage<T>>(kWidth, kHeight, 1, channels);
  std::mt19937 random(1);
  std::normal_distribution<double> normal(0.0, 1000.0);
  for (std::size_t i = 0; i < image->size(); ++i)
    (*image)[i] = static_cast<T>(normal(random));
  return SharedImage(image);
}

template <typename T, int channels, bool levels> void logCompression(benchmark::State& state) {
  const SharedImage image = speckle<T>(channels);
  const LogCompressionAlgorithm::Parameters parameters{60.0, 4000.0, levels};
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(LogCompressionAlgorithm::logCompression(image, parameters));
  const double pixels = static_cast<double>(kWidth) * kHeight, runs = static_cast<double>(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(runs * pixels * (sizeof(T) * channels + (levels ? 1 : 4))));
  state.counters["pixels"] = benchmark::Counter(runs * pixels, benchmark::Counter::kIsRate);
}
BENCHMARK(logCompression<float, 1, true>)->Name("float, levels")->UseRealTime();
BENCHMARK(logCompression<float, 2, true>)->Name("float IQ, levels")->UseRealTime();
BENCHMARK(logCompression<short, 2, true>)->Name("short IQ, levels")->UseRealTime();
BENCHMARK(logCompression<float, 1, false>)->Name("float, decibels")->UseRealTime();

void copy(benchmark::State& state) {
  const SharedImage image = speckle<float>(1);
  const std::size_t bytes = image.descriptor().byteSize();
  for ([[maybe_unused]] auto _ : state) {
    auto target = MemImage::create(image.descriptor());
    std::memcpy(target->data(), image.mem()->data(), bytes);
    benchmark::DoNotOptimize(target->data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(2 * bytes));
}
BENCHMARK(copy)->Name("Copy, one thread")->UseRealTime();

} // namespace
} // namespace Kelvaris::US

BENCHMARK_MAIN();
