#include "gpu/ConvolutionFilter1DLaunch.h"

#include "gpu/LineFilterLoops.h"
#include "gpu/LineRuns.h"

#include <vector>

namespace Kelvaris::US::GPU {

// The builds of ConvolutionFilter1DKernelCpu.cpp.
#define KELVARIS_VARIANT(arch)                                                                                         \
  namespace arch {                                                                                                     \
  template <typename T>                                                                                                \
  void convolveRows(const ConvolutionFilter1DArguments&, int axis, int other, int begin, int end);                     \
  template <typename T>                                                                                                \
  void convolveLine(const ConvolutionFilter1DArguments&, int axis, int x, int y, int z, float* samples);               \
  }
KELVARIS_VARIANT(cpu_v2)
KELVARIS_VARIANT(cpu_v3)
KELVARIS_VARIANT(cpu_v4)
#undef KELVARIS_VARIANT

template <typename T> void convolveOnCpu(const ConvolutionFilter1DArguments& a, int axis, CUDA::CpuVariant variant) {
  const bool isDense = a.input.elementStride == sizeof(T) && a.output.elementStride == sizeof(T);
  if (axis != 0 && isDense && a.input.width >= CUDA::lanesPerRegister(variant)) {
    const auto convolveRows =
        CUDA::chooseVariant(variant, cpu_v2::convolveRows<T>, cpu_v3::convolveRows<T>, cpu_v4::convolveRows<T>);
    forEachRows(axis, a.output, [&](int other, int begin, int end) { convolveRows(a, axis, other, begin, end); });
  } else {
    const auto convolveLine =
        CUDA::chooseVariant(variant, cpu_v2::convolveLine<T>, cpu_v3::convolveLine<T>, cpu_v4::convolveLine<T>);
    const RunLayout layout(extentAlong(axis, a.input), 1);
    forEachLine(axis, a.output, layout.makeRuns(), [&](int x, int y, int z, std::vector<float>& samples) {
      convolveLine(a, axis, x, y, z, RunLayout::firstOf(samples));
    });
  }
}

template void convolveOnCpu<char>(const ConvolutionFilter1DArguments&, int, CUDA::CpuVariant);
template void convolveOnCpu<unsigned char>(const ConvolutionFilter1DArguments&, int, CUDA::CpuVariant);
template void convolveOnCpu<short>(const ConvolutionFilter1DArguments&, int, CUDA::CpuVariant);
template void convolveOnCpu<unsigned short>(const ConvolutionFilter1DArguments&, int, CUDA::CpuVariant);
template void convolveOnCpu<int>(const ConvolutionFilter1DArguments&, int, CUDA::CpuVariant);
template void convolveOnCpu<unsigned int>(const ConvolutionFilter1DArguments&, int, CUDA::CpuVariant);
template void convolveOnCpu<float>(const ConvolutionFilter1DArguments&, int, CUDA::CpuVariant);

} // namespace Kelvaris::US::GPU
