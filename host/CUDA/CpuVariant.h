#pragma once

namespace Kelvaris::CUDA {

/// Level of the x86-64 instruction set that a source file is built for (see `kelvaris_cpu_variants` in cmake).
enum class CpuVariant : int { V2 = 2, V3 = 3, V4 = 4 };

/// True if this processor has the level: V2 SSE 4.2, V3 AVX2 and FMA, V4 AVX-512.
bool isSupported(CpuVariant variant);
/// The highest level of this processor.
CpuVariant bestCpuVariant();

/// Floats in a vector register of the level.
constexpr int lanesPerRegister(CpuVariant variant) {
  return 1 << static_cast<int>(variant);
}

/// The function built for the level.
template <typename Function> Function* chooseVariant(CpuVariant variant, Function* v2, Function* v3, Function* v4) {
  return variant == CpuVariant::V4 ? v4 : variant == CpuVariant::V3 ? v3 : v2;
}

} // namespace Kelvaris::CUDA
