#include "imagemath/Stash.h"

#include <fmt/format.h>

#include <cstdint>

namespace Kelvaris::ImageMath::internal {

std::string VariableGl::evalString(bool) const {
  switch (m_channels) {
  case 1:
    return "varval.r";
  case 2:
    return "varval.rg";
  case 3:
    return "varval.rgb";
  case 4:
    return "varval";
  default:
    return {};
  }
}

std::string StashGl::evalString(bool stored) const {
  return fmt::format("{}(toTexel({}))", name(), m_expensive->evalString(stored));
}

void StashGl::getVariableDefinitionList(std::string& list) const {
  GlLeaf::getVariableDefinitionList(list);
  list += fmt::format("{} {}(vec4 varval) {{ return {}; }}\n", glType(channels()), name(), m_cheap->evalString(false));
}

TaggingIndex StashGl::tag() const {
  return {"stash", {reinterpret_cast<std::uintptr_t>(this)}};
}

} // namespace Kelvaris::ImageMath::internal
