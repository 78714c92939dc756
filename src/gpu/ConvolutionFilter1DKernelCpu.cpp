// Built once per instruction set: see kelvaris_cpu_variants in cmake. No templates of the standard library here: the
// linker would merge their functions with those of other files.
//
// Bundles of neighbouring threads share their taps or sit side by side on a line. The terms and their order are those
// of the kernel, so every thread gets the bits that it would alone.
#include "gpu/ConvolutionFilter1DKernel.h"

#include "gpu/LineFilterLanes.h"
#include "gpu/LineRuns.h"

#include <cstdint>
#include <cstring>

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

/// The taps, by their offset from the centre.
struct Taps {
  const char* centre;
  std::int64_t stride;

  KELVARIS_KERNEL explicit Taps(const KernelBuffer& filter)
      : centre(CUDA::elementAddress(filter, filter.width / 2, 0, 0)), stride(filter.elementStride) {}
  KELVARIS_KERNEL float operator[](int k) const { return *reinterpret_cast<const float*>(centre + k * stride); }
};

/// Outputs of a column that are computed together: a row of samples that has been read and converted serves them all.
constexpr int kOutputsAtOnce = 4;
/// Registers of lanes side by side, so that the sums of these outputs and a row fit into the processor's registers.
constexpr int kWidestColumn = Lanes::count == 16 ? 4 : 2;

/// Adds the terms of the samples i to end - 1 of the column to the sums of outputs c, c + 1, ...; with `allInside`
/// false only to those that have the sample in their range of offsets.
template <bool allInside, typename T, int n>
KELVARIS_KERNEL void addRows(Bundle<n> (&sums)[kOutputsAtOnce], const TapRange (&ranges)[kOutputsAtOnce],
                             const char* column, std::int64_t step, const Taps& taps, int c, int i, int end) {
  for (; i < end; ++i) {
    const Bundle<n> row = Bundle<n>::load(reinterpret_cast<const T*>(column + i * step));
    for (int j = 0; j < kOutputsAtOnce; ++j) {
      const int k = i - c - j;
      if (allInside || (k >= ranges[j].first && k < ranges[j].end))
        sums[j] = multiplyAdd(row, Bundle<n>(taps[k]), sums[j]);
    }
  }
}

/// Calls the bytes into the cache.
template <int bytes> KELVARIS_KERNEL void prefetch(const char* address) {
  constexpr int line = 64;
  for (int offset = 0; offset < bytes; offset += line)
    __builtin_prefetch(address + offset);
}

/// As many threads as the bundle has lanes, from x on, in rows `begin` to end - 1 of the axis.
template <typename T, int axis, int n>
KELVARIS_KERNEL void convolveColumn(const ConvolutionFilter1DArguments& a, int x, int other, int begin, int end) {
  const Taps taps(a.filter);
  const int samples = extentAlong(axis, a.input);
  const char* input = CUDA::elementAddress(a.input, x, axis == 1 ? 0 : other, axis == 1 ? other : 0);
  char* output = CUDA::elementAddress(a.output, x, axis == 1 ? 0 : other, axis == 1 ? other : 0);
  const std::int64_t inputStep = strideAlong(axis, a.input), outputStep = strideAlong(axis, a.output);
  const auto upTo = [](int value, int most) { return value < most ? value : most; };
  // The rows that the outputs after the next ones begin with: the processor does not foresee these steps.
  const int ahead = a.filter.width - a.filter.width / 2 + 2 * kOutputsAtOnce;

  for (int c = begin; c < end; c += kOutputsAtOnce) {
    Bundle<n> sums[kOutputsAtOnce];
    TapRange ranges[kOutputsAtOnce];
    for (int j = 0; j < kOutputsAtOnce; ++j) {
      sums[j] = Bundle<n>(0.0f);
      ranges[j] = tapRange(c + j, 1, a.filter.width, samples);
      prefetch<Bundle<n>::count * sizeof(T)>(input + upTo(c + j + ahead, samples - 1) * inputStep);
    }
    // The samples that all these outputs have terms for, and on both sides of them those that some have.
    constexpr int last = kOutputsAtOnce - 1;
    const int first = c + ranges[0].first, beginAll = upTo(c + last + ranges[last].first, samples);
    const int endAll = c + ranges[0].end < beginAll ? beginAll : c + ranges[0].end;
    addRows<false, T>(sums, ranges, input, inputStep, taps, c, first, beginAll);
    addRows<true, T>(sums, ranges, input, inputStep, taps, c, beginAll, endAll);
    addRows<false, T>(sums, ranges, input, inputStep, taps, c, endAll, c + last + ranges[last].end);
    for (int j = 0; j < kOutputsAtOnce && c + j < end; ++j)
      toStored<T>(sums[j]).store(reinterpret_cast<T*>(output + (c + j) * outputStep));
  }
}

/// For axis 1 (2): the threads with z (y) `other`, and with y (z) from `begin` to end - 1. The elements of input and
/// output lie side by side along x, at least a register of them.
template <typename T>
void convolveRows(const ConvolutionFilter1DArguments& a, int axis, int other, int begin, int end) {
  if (axis == 1)
    forEachBundle<kWidestColumn>(0, a.output.width,
                                 [&]<int n>(int x) { convolveColumn<T, 1, n>(a, x, other, begin, end); });
  else
    forEachBundle<kWidestColumn>(0, a.output.width,
                                 [&]<int n>(int x) { convolveColumn<T, 2, n>(a, x, other, begin, end); });
}

/// What the threads c, c + 1, ... of one line read.
template <int n> struct LineOfFloats {
  const float* samples; // of thread c
  Taps taps;

  KELVARIS_KERNEL Bundle<n> sample(int k) const { return Bundle<n>::load(samples + k); }
  KELVARIS_KERNEL Bundle<n> tap(int k) const { return Bundle<n>(taps[k]); }
};

/// The samples of the line along `axis` that starts at (x, y, z).
template <typename T>
KELVARIS_KERNEL void readLine(const KernelBuffer& input, int axis, int x, int y, int z, float* samples) {
  const char* first = CUDA::elementAddress(input, x, y, z);
  const std::int64_t stride = strideAlong(axis, input);
  const int count = extentAlong(axis, input);
  int i = 0;
  if (stride == sizeof(T))
    for (; i + Lanes::count <= count; i += Lanes::count)
      Bundle<1>::load(reinterpret_cast<const T*>(first) + i).store(samples + i);
  for (; i < count; ++i)
    samples[i] = static_cast<float>(*reinterpret_cast<const T*>(first + i * stride));
}

/// Stores the first `count` lanes, side by side on `axis` from (x, y, z) on.
template <typename T, int n>
KELVARIS_KERNEL void storeLanes(const KernelBuffer& output, int axis, int x, int y, int z, Bundle<n> sum, int count) {
  char* address = CUDA::elementAddress(output, x, y, z);
  const std::int64_t stride = strideAlong(axis, output);
  T values[Bundle<n>::count];
  toStored<T>(sum).store(values);
  if (stride == sizeof(T) && count == Bundle<n>::count) {
    std::memcpy(address, values, sizeof values);
    return;
  }
  for (int i = 0; i < count; ++i)
    *reinterpret_cast<T*>(address + i * stride) = values[i];
}

/// The threads of the line along `axis` through (x, y, z), where that coordinate is 0. `samples` has room for the line,
/// and for RunLayout::margin floats before and after it.
template <typename T>
void convolveLine(const ConvolutionFilter1DArguments& a, int axis, int x, int y, int z, float* samples) {
  static_assert(Bundle<4>::count <= RunLayout::margin);
  const int count = extentAlong(axis, a.output);
  readLine<T>(a.input, axis, x, y, z, samples);
  forEachStretch<4>(count, [&]<int n>(int c, int outputs) {
    Bundle<n> sum(0.0f);
    addStretch(sum, LineOfFloats<n>{samples + c, Taps(a.filter)}, c, outputs, 1, a.filter.width, count);
    storeLanes<T, n>(a.output, axis, axis == 0 ? c : x, axis == 1 ? c : y, axis == 2 ? c : z, sum, outputs);
  });
}

#define KELVARIS_SAMPLE_TYPE(T)                                                                                        \
  template void convolveRows<T>(const ConvolutionFilter1DArguments&, int, int, int, int);                              \
  template void convolveLine<T>(const ConvolutionFilter1DArguments&, int, int, int, int, float*);
KELVARIS_SAMPLE_TYPE(char)
KELVARIS_SAMPLE_TYPE(unsigned char)
KELVARIS_SAMPLE_TYPE(short)
KELVARIS_SAMPLE_TYPE(unsigned short)
KELVARIS_SAMPLE_TYPE(int)
KELVARIS_SAMPLE_TYPE(unsigned int)
KELVARIS_SAMPLE_TYPE(float)
#undef KELVARIS_SAMPLE_TYPE

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
