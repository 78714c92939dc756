#include "gpu/IqDemodulationLaunch.h"

#include "gpu/IqDemodulationKernel.h"
#include "gpu/IqDemodulationRuns.h"

#include <algorithm>
#include <cstddef>
#include <omp.h>
#include <vector>

namespace Kelvaris::US::GPU {

// The builds of IqDemodulationKernelCpu.cpp.
#define KELVARIS_VARIANT(arch)                                                                                         \
  namespace arch {                                                                                                     \
  template <typename T> void demodulateRows(const IqDemodulationArguments&, int axis, int other, int begin, int end);  \
  template <typename T>                                                                                                \
  void demodulateLine(const IqDemodulationArguments&, const IqDemodulationRuns&, int axis, int x, int y, int z);       \
  int lanesPerRegister();                                                                                              \
  }
KELVARIS_VARIANT(cpu_v2)
KELVARIS_VARIANT(cpu_v3)
KELVARIS_VARIANT(cpu_v4)
#undef KELVARIS_VARIANT

namespace {

/// Outputs of one task across lines: their taps overlap, so the rows of the input stay in the cache.
constexpr int rowsPerTask = 32;
/// Above it, there are too few outputs to be worth the runs of a line.
constexpr int largestFactorInRuns = 64;

template <typename T> void demodulateAcrossLines(const IqDemodulationArguments& a, int axis, CUDA::CpuVariant variant) {
  const auto demodulateRows =
      CUDA::chooseVariant(variant, cpu_v2::demodulateRows<T>, cpu_v3::demodulateRows<T>, cpu_v4::demodulateRows<T>);
  const int outputs = extentAlong(axis, a.output), others = extentAlong(3 - axis, a.output);
  const int tasks = (outputs - 1) / rowsPerTask + 1;
#pragma omp parallel for collapse(2) schedule(dynamic)
  for (int other = 0; other < others; ++other)
    for (int task = 0; task < tasks; ++task) {
      const int begin = task * rowsPerTask;
      demodulateRows(a, axis, other, begin, std::min(begin + rowsPerTask, outputs));
    }
}

/// Where the numbers of a line stand when it is split into runs by index modulo the decimation factor.
class RunLayout {
public:
  RunLayout(int count, int factor)
      : m_count(count), m_factor(factor), m_pitch(2 * IqDemodulationRuns::margin + (count - 1) / factor + 1) {}

  std::vector<float> makeRuns() const { return std::vector<float>(static_cast<std::size_t>(m_factor * m_pitch)); }
  static const float* firstOf(const std::vector<float>& runs) { return runs.data() + IqDemodulationRuns::margin; }

  template <typename Read> void fill(std::vector<float>& runs, Read&& read) const {
    for (int remainder = 0; remainder < m_factor; ++remainder) {
      float* run = runs.data() + remainder * m_pitch + IqDemodulationRuns::margin;
      for (int i = remainder; i < m_count; i += m_factor)
        *run++ = read(i);
    }
  }

  /// From number q D to number q D + k.
  std::ptrdiff_t offset(int k) const {
    const int quotient = k >= 0 ? k / m_factor : -((m_factor - 1 - k) / m_factor);
    return (k - quotient * m_factor) * m_pitch + quotient;
  }

private:
  int m_count, m_factor;
  std::ptrdiff_t m_pitch;
};

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

  // The lines start in the plane of the two other axes.
  const int axisU = axis == 0 ? 1 : 0, axisV = axis == 2 ? 1 : 2;
  const int extentU = extentAlong(axisU, a.output), extentV = extentAlong(axisV, a.output);
  std::vector<std::vector<float>> scratch(static_cast<std::size_t>(omp_get_max_threads()), layout.makeRuns());
#pragma omp parallel for collapse(2) schedule(dynamic)
  for (int v = 0; v < extentV; ++v)
    for (int u = 0; u < extentU; ++u) {
      const int x = axis == 0 ? 0 : u, y = axis == 0 ? u : axis == 1 ? 0 : v, z = axis == 2 ? 0 : v;
      std::vector<float>& samples = scratch[static_cast<std::size_t>(omp_get_thread_num())];
      layout.fill(samples, [&](int i) {
        return static_cast<float>(
            CUDA::readElement<T>(a.input, axis == 0 ? i : x, axis == 1 ? i : y, axis == 2 ? i : z));
      });
      const IqDemodulationRuns runs{RunLayout::firstOf(samples), RunLayout::firstOf(inPhase),
                                    RunLayout::firstOf(quadrature), offsets.data() + half};
      demodulateLine(a, runs, axis, x, y, z);
    }
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
  const auto lanesPerRegister =
      CUDA::chooseVariant(variant, cpu_v2::lanesPerRegister, cpu_v3::lanesPerRegister, cpu_v4::lanesPerRegister);
  if (a.decimationFactor > largestFactorInRuns) {
    axis == 0   ? demodulateThreadByThread<T, 0>(a)
    : axis == 1 ? demodulateThreadByThread<T, 1>(a)
                : demodulateThreadByThread<T, 2>(a);
  } else if (axis != 0 && a.input.width >= lanesPerRegister() && a.input.elementStride == sizeof(T)) {
    demodulateAcrossLines<T>(a, axis, variant);
  } else {
    demodulateAlongLines<T>(a, axis, variant);
  }
}

template void demodulateOnCpu<short>(const IqDemodulationArguments&, int, CUDA::CpuVariant);
template void demodulateOnCpu<float>(const IqDemodulationArguments&, int, CUDA::CpuVariant);

} // namespace Kelvaris::US::GPU
