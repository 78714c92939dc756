#pragma once

/// Arithmetic on images, pixel by pixel. A formula is written as an expression on leaves, which builds a tree:
///
///   Array<const SharedImage> x(image);
///   auto result = (log(max(abs(x), 1e-30f) / 5.0f) * 20).evaluateIntoImage<float>(false);
///
/// Nothing is computed before evaluateIntoImage() or an assignment to an Array, and then in one pass without
/// intermediate images, either by a loop in main memory or by a shader that is generated from the tree.

#include "imagemath/Array.h"
#include "imagemath/BroadcastChannels.h"
#include "imagemath/ChannelReduction.h"
#include "imagemath/DeviceStrategyWrapper.h"
#include "imagemath/MaskLeaf.h"
#include "imagemath/Noise.h"
#include "imagemath/Operators.h"
#include "imagemath/Select.h"
#include "imagemath/Stash.h"

namespace Kelvaris::ImageMath {

template <typename Derived>
template <typename T>
std::unique_ptr<SharedImage> ExprBaseTpl<Derived>::evaluateIntoImage(bool normalize) const {
  ImageDescriptor descriptor = imgDesc();
  internal::checkHasShape(descriptor);
  descriptor.setPixelType(pixelTypeOf<T>());
  if (normalize) {
    descriptor.setShift(0.0);
    descriptor.setScale(1.0);
  }
  auto image = std::make_unique<SharedImage>(descriptor);
  Array<SharedImage, T, false> target(*image);
  target = derived();
  return image;
}

} // namespace Kelvaris::ImageMath
