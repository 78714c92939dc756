#include "gpu/IqDemodulationLaunch.h"

#include "gpu/IqDemodulationKernel.h"
#include "gpu/IqDemodulationRuns.h"
#include "gpu/LineFilterLoops.h"
#include "gpu/LineRuns.h"

#include <cstddef>
#include <vector>

namespace Kelvaris::US::GPU {

// The builds of IqDemodulationKernelCpu.cpp.
#define KELVARIS_VARIANT(arch)                                                                                         \
  namespace arch {                                                                                                     \
  template <typename T> void demodulateRows(const IqDemodulationArguments&, int axis, int other, int begin, int end);  \
  template <typename T>                                                                                                \
  void demodulateLine(const IqDemodulationArguments&, const IqDemodulationRuns&, int axis, int x, int y, int z);       \
  }
KELVARIS_VARIANT(cpu_v2)
KELVARIS_VARIANT(cpu_v3)
KELVARIS_VARIANT(cpu_v4)
#undef KELVARIS_VARIANT

namespace {

/// Above it, there are too few outputs to be worth the runs of a line.
constexpr int largestFactorInRuns = 64;

template <typename T> void demodulateAcrossLines(const IqDemodulationArguments& a, int axis, CUDA::CpuVariant variant) {
  const auto demodulateRows =
      CUDA::chooseVariant(variant, cpu_v2::demodulateRows<T>, cpu_v3::demodulateRows<T>, cpu_v4::demodulateRows<T>);
  forEachRows(axis, a.output, [&](int other, int begin, int end) { demodulateRows(a, axis, other, begin, end); });
}

template <typename T> void demodulateAlongLines(const IqDemodulationArguments& a, int axis, CUDA::CpuVariant variant) {
  const auto demodulateLine =
      CUDA::chooseVariant(variant, cpu_v2::demodulateLine<T>, cpu_v3::demodulateLine<T>, cpu_v4::demodulateLine<T>);
  const RunLayout layout(extentAlong(axis, a.input), a.decimationFactor);
  std::vector<float> inPhase = layout.makeRuns(), quadrature = layout.makeRuns();
  layout.fill(inPhase, [&](int i) { return CUDA::readElement<float2>(a.signal, i, 0, 0).x; });
  layout.fill(quadrature, [&](int i) { return CUDA::readElement<float2>(a.signal, i, 0, 0).y; });
  const int taps = a.filter.width, half = taps / 2;
  std::vector<std::ptrdiff_t> offsets(static_cast<std::size_t>(taps));
  for (int tap = 0; tap < taps; ++tap)
    offsets[static_cast<std::size_t>(tap)] = layout.offset(tap - half);

  forEachLine(axis, a.output, layout.makeRuns(), [&](int x, int y, int z, std::vector<float>& samples) {
    layout.fill(samples, [&](int i) {
      return static_cast<float>(CUDA::readElement<T>(a.input, axis == 0 ? i : x, axis == 1 ? i : y, axis == 2 ? i : z));
    });
    const IqDemodulationRuns runs{RunLayout::firstOf(samples), RunLayout::firstOf(inPhase),
                                  RunLayout::firstOf(quadrature), offsets.data() + half};
    demodulateLine(a, runs, axis, x, y, z);
  });
}

template <typename T, int axis> void demodulateThreadByThread(const IqDemodulationArguments& a) {
#pragma omp parallel for collapse(2) schedule(dynamic)
  for (int z = 0; z < a.output.slices; ++z)
    for (int y = 0; y < a.output.height; ++y)
      for (int x = 0; x < a.output.width; ++x)
        demodulationThread<T, axis>(a, x, y, z);
}

} // namespace

template <typename T> void demodulateOnCpu(const IqDemodulationArguments& a, int axis, CUDA::CpuVariant variant) {
  if (a.decimationFactor > largestFactorInRuns) {
    axis == 0   ? demodulateThreadByThread<T, 0>(a)
    : axis == 1 ? demodulateThreadByThread<T, 1>(a)
                : demodulateThreadByThread<T, 2>(a);
  } else if (axis != 0 && a.input.width >= CUDA::lanesPerRegister(variant) && a.input.elementStride == sizeof(T)) {
    demodulateAcrossLines<T>(a, axis, variant);
  } else {
    demodulateAlongLines<T>(a, axis, variant);
  }
}

template void demodulateOnCpu<short>(const IqDemodulationArguments&, int, CUDA::CpuVariant);
template void demodulateOnCpu<float>(const IqDemodulationArguments&, int, CUDA::CpuVariant);

} // namespace Kelvaris::US::GPU
