#pragma once

#include "Lib/SharedImageSet.h"

#include <Eigen/Core>

#include <optional>

namespace Kelvaris::US {

/// Width and height (mm) of the pixels of a picture of lines and depths, whose spacing counts lines across. Lines that
/// aren't parallel and upright have no pixels of one size: zeros. Nothing for an image that has been scan-converted, or
/// of anything else: its spacing says it. Throws std::out_of_range for an index that isn't there.
std::optional<Eigen::Vector2d> prescanPixelSize(const SharedImageSet& images, int index);

} // namespace Kelvaris::US
