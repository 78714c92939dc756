#pragma once

#include <cstddef>

namespace Kelvaris::ImageMath {

/// vectorLog() for processors with AVX2 and FMA.
void vectorLogAvx2(double* values, std::size_t count);

} // namespace Kelvaris::ImageMath
