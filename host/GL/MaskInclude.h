#pragma once

#include "GL/AbstractInclude.h"
#include "Lib/Mask.h"

#include <memory>

namespace Kelvaris::GL {

/// The mask as a piece of a shader, which gives
///
///   bool <prefix>IsValid(vec4 texel, vec2 position)
///
/// `texel` holds the pixel's stored components, those that the image doesn't have repeat the first; `position` is the
/// pixel's centre in texture coordinates, [0, 1] x [0, 1]. Null for a mask that shaders can't evaluate.
std::shared_ptr<const AbstractInclude> maskInclude(const std::shared_ptr<const Mask>& mask);

} // namespace Kelvaris::GL
