// Built once per instruction set: see kelvaris_cpu_variants in cmake.
#include "CUDA/Lanes.h"

#include <cstddef>

namespace Kelvaris::Bench::KELVARIS_ARCH {

using CUDA::KELVARIS_ARCH::Lanes;

float multiplyAdds(int rounds, float factor);
float sumOf(const float* values, std::size_t count);
int operationsPerRound();
float readScattered(const float* values, const float* indices, int count);

constexpr int kChains = 10; // covers latency times throughput of the multiply-add units, within 16 registers

/// `rounds` multiply-adds in each of a few independent chains of lanes.
float multiplyAdds(int rounds, float factor) {
  Lanes chain[kChains];
  for (int i = 0; i < kChains; ++i)
    chain[i] = static_cast<float>(i);
  for (int round = 0; round < rounds; ++round)
    for (Lanes& value : chain)
      value = multiplyAdd(value, Lanes(factor), Lanes(1.0f));
  Lanes sum = chain[0];
  for (int i = 1; i < kChains; ++i)
    sum = sum + chain[i];
  return highest(sum);
}

int operationsPerRound() {
  return kChains * Lanes::count;
}

/// `count` is a multiple of 64.
float sumOf(const float* values, std::size_t count) {
  Lanes sums[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (std::size_t i = 0; i < count; i += 4 * Lanes::count)
    for (std::size_t part = 0; part < 4; ++part)
      sums[part] = sums[part] + Lanes::load(values + i + part * Lanes::count);
  return highest(sums[0] + sums[1] + sums[2] + sums[3]);
}

/// `count` is a multiple of 16.
float readScattered(const float* values, const float* indices, int count) {
  const char* first = reinterpret_cast<const char*>(values);
  Lanes sum = 0.0f;
  for (int i = 0; i < count; i += Lanes::count)
    sum = sum + CUDA::LaneAddresses(first, Lanes::load(indices + i), sizeof(float)).read1();
  return highest(sum);
}

} // namespace Kelvaris::Bench::KELVARIS_ARCH
