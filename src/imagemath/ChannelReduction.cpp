#include "imagemath/ChannelReduction.h"

namespace Kelvaris::ImageMath::internal {

std::string ChannelReductionGl::evalString(bool stored) const {
  const std::string operand = m_operand->evalString(stored);
  if (m_operand->channels() == 1) return operand;
  std::string folded = "(" + operand + ").r";
  for (int channel = 1; channel < m_operand->channels(); ++channel)
    folded = m_text(folded, "(" + operand + ")." + "rgba"[channel]);
  return folded;
}

} // namespace Kelvaris::ImageMath::internal
