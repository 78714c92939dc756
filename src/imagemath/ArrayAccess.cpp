#include "imagemath/ArrayAccess.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris::ImageMath::internal {

void ArrayAccess::checkAxes() const {
  bool used[3] = {};
  for (const int axis : {axes[0], axes[1], axes[2]}) {
    if (axis < 0 || axis > 2 || used[axis])
      throw std::invalid_argument(
          fmt::format("An axis map of ({}, {}, {}); it must hold 0, 1 and 2, each once", axes[0], axes[1], axes[2]));
    used[axis] = true;
  }
}

void ArrayAccess::checkFilter() const {
  if (magFilter != kNearest && magFilter != kLinear)
    throw std::invalid_argument(
        fmt::format("The magnification filter {} is neither nearest (9728) nor linear (9729)", magFilter));
}

void ArrayAccess::checkWrap() const {
  if (wrap != kClampToEdge && wrap != kClampToBorder)
    throw std::invalid_argument(
        fmt::format("The wrap mode {} is neither clamp to edge (33071) nor clamp to border (33069)", wrap));
}

} // namespace Kelvaris::ImageMath::internal
