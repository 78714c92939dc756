#include "imagemath/InputLeaf.h"

#include <algorithm>
#include <set>

namespace Kelvaris::ImageMath::internal {

std::vector<const InputLeaf*> inputLeaves(const ExprInterface& expr) {
  std::vector<const InputLeaf*> leaves;
  if (const auto* leaf = dynamic_cast<const InputLeaf*>(&expr)) leaves.push_back(leaf);
  for (const ExprInterface* child : expr.children())
    for (const InputLeaf* leaf : inputLeaves(*child))
      leaves.push_back(leaf);
  return leaves;
}

int combinedStrategy(const std::vector<const ExprInterface*>& operands) {
  int strategy = 2;
  std::set<const void*> images;
  for (const ExprInterface* operand : operands) {
    strategy = std::min(strategy, operand->deviceStrategy());
    for (const InputLeaf* leaf : inputLeaves(*operand))
      images.insert(leaf->inputImage());
  }
  return images.size() > kMaxGlInputs ? 0 : strategy;
}

} // namespace Kelvaris::ImageMath::internal
