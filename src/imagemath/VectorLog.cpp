#include "imagemath/VectorLog.h"

#include "imagemath/VectorLogAvx2.h"

#include <emmintrin.h>
#include <sleef.h>

namespace Kelvaris::ImageMath {

void vectorLog(double* values, std::size_t count) {
  static const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  if (hasAvx2) {
    vectorLogAvx2(values, count);
    return;
  }
  for (std::size_t i = 0; i < count; i += 2)
    _mm_storeu_pd(values + i, Sleef_logd2_u10(_mm_loadu_pd(values + i)));
}

} // namespace Kelvaris::ImageMath
