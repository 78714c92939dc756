#pragma once

#include "Lib/ImageDescriptor.h"
#include "imagemath/ExprInterface.h"

#include <vector>

namespace Kelvaris::ImageMath::internal {

/// Inputs beyond which an expression isn't evaluated by a shader: OpenGL guarantees as many texture units.
inline constexpr std::size_t kMaxGlInputs = 16;

/// A leaf that reads an image.
class InputLeaf {
public:
  virtual ~InputLeaf() = default;
  /// Identifies the image.
  virtual const void* inputImage() const = 0;
  /// Whether it reads other pixels than the one being computed.
  virtual bool isMapped() const = 0;
  /// Throws std::invalid_argument if it can't be read at all pixels of `target`.
  virtual void checkShape(const ImageDescriptor& target) const = 0;
  /// Sees to it that the image's pixels lie in main memory.
  virtual void bringToMem() const = 0;

protected:
  InputLeaf() = default;
  InputLeaf(const InputLeaf&) = default;
  InputLeaf& operator=(const InputLeaf&) = default;
};

/// All leaves of the expression that read images.
std::vector<const InputLeaf*> inputLeaves(const ExprInterface& expr);

/// The strategy of a node with these operands: the least of theirs; 0 with too many inputs.
int combinedStrategy(const std::vector<const ExprInterface*>& operands);

} // namespace Kelvaris::ImageMath::internal
