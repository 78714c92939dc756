#pragma once

#include <cstddef>

namespace Kelvaris::US {

/// vectorLog() for processors with AVX2 and FMA.
void vectorLogAvx2(double* values, std::size_t count);

} // namespace Kelvaris::US
