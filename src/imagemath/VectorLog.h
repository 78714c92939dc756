#pragma once

#include <cstddef>

namespace Kelvaris::ImageMath {

/// Replaces each value by its natural logarithm, within one unit in the last place; log(1) is 0, negative values and
/// NaN give NaN. `count` must be a multiple of 4.
void vectorLog(double* values, std::size_t count);

} // namespace Kelvaris::ImageMath
