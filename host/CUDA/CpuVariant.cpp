#include "CUDA/CpuVariant.h"

namespace Kelvaris::CUDA {

bool isSupported(CpuVariant variant) {
  switch (variant) {
  case CpuVariant::V4:
    return __builtin_cpu_supports("x86-64-v4");
  case CpuVariant::V3:
    return __builtin_cpu_supports("x86-64-v3");
  case CpuVariant::V2:
    return __builtin_cpu_supports("x86-64-v2");
  }
  return false;
}

CpuVariant bestCpuVariant() {
  static const CpuVariant best = isSupported(CpuVariant::V4)   ? CpuVariant::V4
                                 : isSupported(CpuVariant::V3) ? CpuVariant::V3
                                                               : CpuVariant::V2;
  return best;
}

} // namespace Kelvaris::CUDA
