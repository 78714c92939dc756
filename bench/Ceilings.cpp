#include "Ceilings.h"

#include "CUDA/Check.h"
#include "CUDA/CpuVariant.h"
#include "CUDA/Device.h"
#include "CUDA/DeviceMemory.h"

#include <benchmark/benchmark.h>

#if KELVARIS_HAVE_CUDA
#include <cuda_runtime_api.h>
#endif
#include <omp.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace Kelvaris::Bench {

// The builds of CeilingsCpu.cpp.
#define KELVARIS_VARIANT(arch)                                                                                         \
  namespace arch {                                                                                                     \
  float multiplyAdds(int rounds, float factor);                                                                        \
  float sumOf(const float* values, std::size_t count);                                                                 \
  int operationsPerRound();                                                                                            \
  float readScattered(const float* values, const float* indices, int count);                                           \
  }
KELVARIS_VARIANT(cpu_v2)
KELVARIS_VARIANT(cpu_v3)
KELVARIS_VARIANT(cpu_v4)
#undef KELVARIS_VARIANT

namespace {

template <typename Function> Function* best(Function* v2, Function* v3, Function* v4) {
  return CUDA::chooseVariant(CUDA::bestCpuVariant(), v2, v3, v4);
}

void multiplyAddRate(benchmark::State& state) {
  const auto multiplyAdds = best(cpu_v2::multiplyAdds, cpu_v3::multiplyAdds, cpu_v4::multiplyAdds);
  const int perRound = best(cpu_v2::operationsPerRound, cpu_v3::operationsPerRound, cpu_v4::operationsPerRound)();
  constexpr int rounds = 1 << 20;
  for ([[maybe_unused]] auto _ : state) {
    float total = 0.0f;
#pragma omp parallel reduction(+ : total)
    total += multiplyAdds(rounds, 0.5f);
    benchmark::DoNotOptimize(total);
  }
  state.counters["operations"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * rounds * perRound * omp_get_max_threads(), benchmark::Counter::kIsRate);
}

void readRate(benchmark::State& state) {
  const auto sumOf = best(cpu_v2::sumOf, cpu_v3::sumOf, cpu_v4::sumOf);
  constexpr std::ptrdiff_t blocks = 4096, blockSize = 1 << 14; // 256 MiB
  const std::vector<float> values(static_cast<std::size_t>(blocks * blockSize), 1.0f);
  for ([[maybe_unused]] auto _ : state) {
    float total = 0.0f;
#pragma omp parallel for reduction(+ : total)
    for (std::ptrdiff_t block = 0; block < blocks; ++block)
      total += sumOf(values.data() + block * blockSize, static_cast<std::size_t>(blockSize));
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * blocks * blockSize * 4);
}

void copyOnCpu(char* target, const char* source, std::size_t bytes) {
  constexpr std::size_t blockSize = 1 << 20;
#pragma omp parallel for
  for (std::size_t block = 0; block < bytes / blockSize; ++block)
    std::memcpy(target + block * blockSize, source + block * blockSize, blockSize);
}

void copyRate(benchmark::State& state) {
  constexpr std::size_t bytes = 1 << 28;
  CUDA::DeviceMemory source(bytes), target(bytes);
  source.upload(std::vector<char>(bytes, 1).data(), bytes);
  const auto copy = [&] {
#if KELVARIS_HAVE_CUDA
    if (CUDA::Device::isCuda()) {
      KELVARIS_CUDA_CHECKED(cudaMemcpy(target.data(), source.data(), bytes, cudaMemcpyDeviceToDevice));
      KELVARIS_CUDA_CHECKED(cudaDeviceSynchronize());
      return;
    }
#endif
    copyOnCpu(static_cast<char*>(target.data()), static_cast<const char*>(source.data()), bytes);
  };
  copy(); // the target's pages exist from here on
  for ([[maybe_unused]] auto _ : state)
    copy();
  state.SetBytesProcessed(static_cast<std::int64_t>(2 * bytes) * state.iterations());
}

void scatteredReadRate(benchmark::State& state) {
  const auto readScattered = best(cpu_v2::readScattered, cpu_v3::readScattered, cpu_v4::readScattered);
  constexpr int count = 1024, rounds = 1 << 10;
  std::vector<float> values(4096, 1.0f), indices(count); // 16 KiB
  std::mt19937 random(1);
  for (float& index : indices)
    index = static_cast<float>(random() % values.size());
  for ([[maybe_unused]] auto _ : state) {
    float total = 0.0f;
#pragma omp parallel reduction(+ : total)
    for (int round = 0; round < rounds; ++round)
      total += readScattered(values.data(), indices.data(), count);
    benchmark::DoNotOptimize(total);
  }
  state.counters["reads"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * rounds * count * omp_get_max_threads(), benchmark::Counter::kIsRate);
}

} // namespace

void registerCeilings() {
  benchmark::RegisterBenchmark("Ceiling: multiply-adds in registers", multiplyAddRate)
      ->MeasureProcessCPUTime()
      ->UseRealTime();
  benchmark::RegisterBenchmark("Ceiling: scattered reads", scatteredReadRate)->MeasureProcessCPUTime()->UseRealTime();
  benchmark::RegisterBenchmark("Ceiling: reading memory", readRate)->MeasureProcessCPUTime()->UseRealTime();
  benchmark::RegisterBenchmark("Ceiling: copying memory", copyRate)->MeasureProcessCPUTime()->UseRealTime();
}

} // namespace Kelvaris::Bench
