#include "imagemath/Select.h"

#include <fmt/format.h>

#include <algorithm>

namespace Kelvaris::ImageMath::internal {

int SelectGl::channels() const {
  return std::max({m_condition->channels(), m_lhs->channels(), m_rhs->channels()});
}

std::string SelectGl::evalString(bool stored) const {
  const std::string type = glType(channels()), condition = channels() == 1 ? "bool" : "b" + type;
  return fmt::format("mix({0}({3}), {0}({2}), {1}({4}))", type, condition, m_lhs->evalString(stored),
                     m_rhs->evalString(stored), m_condition->evalString(stored));
}

} // namespace Kelvaris::ImageMath::internal
