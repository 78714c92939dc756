#include "imagemath/Stash.h"

#include <fmt/format.h>

#include <cstdint>
#include <stdexcept>

namespace Kelvaris::ImageMath::internal {

const void* insideStash(const EvaluationContext& context) {
  if (!context.stash) throw std::logic_error("A stash's variable is evaluated outside of its stash");
  return context.stash;
}

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
