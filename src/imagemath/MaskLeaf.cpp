#include "imagemath/MaskLeaf.h"

#include "GL/AbstractInclude.h"
#include "GL/Program.h"

#include <fmt/format.h>

#include <cstdint>

namespace Kelvaris::ImageMath::internal {
namespace {

/// The components of a texel for a mask: those that the image doesn't have repeat the first.
std::string texel(const std::string& sample, int channels) {
  switch (channels) {
  case 1:
    return "vec4(" + sample + ")";
  case 2:
    return "(" + sample + ").rgrr";
  case 3:
    return "(" + sample + ").rgbr";
  default:
    return sample;
  }
}

} // namespace

std::string MaskLeafGl::evalString(bool) const {
  return fmt::format("float({} && {}IsValid({}, {}))", m_array->isInsideString(), name(),
                     texel(m_array->evalString(true), m_array->channels()), m_array->positionString());
}

TaggingIndex MaskLeafGl::tag() const {
  return {"mask", {reinterpret_cast<std::uintptr_t>(m_mask.get())}};
}

void MaskLeafGl::defineUniforms(std::string& list) const {
  list += m_include->source(name());
}

void MaskLeafGl::setUniforms(GL::Program& program) const {
  m_include->setArguments(program, name());
}

} // namespace Kelvaris::ImageMath::internal
