// Compiled for AVX2: includes nothing whose inline functions other files share.
#include "imagemath/VectorLogAvx2.h"

#include <immintrin.h>
#include <sleef.h>

namespace Kelvaris::ImageMath {

void vectorLogAvx2(double* values, std::size_t count) {
  for (std::size_t i = 0; i < count; i += 4)
    _mm256_storeu_pd(values + i, Sleef_logd4_u10avx2(_mm256_loadu_pd(values + i)));
}

} // namespace Kelvaris::ImageMath
