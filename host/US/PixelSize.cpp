#include "US/PixelSize.h"

#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"

namespace Kelvaris::US {
namespace {

/// The component of the image, else that of the whole set.
template <typename T> const T* componentOf(const SharedImageSet& images, int index) {
  if (const T* own = images.elementwiseComponents().components(index).get<T>()) return own;
  return images.components().get<T>();
}

} // namespace

std::optional<Eigen::Vector2d> prescanPixelSize(const SharedImageSet& images, int index) {
  const ImageDescriptor& d = images.get(index).descriptor();
  const auto* metadata = componentOf<FrameGeometryMetadata>(images, index);
  const FrameGeometry* geometry = metadata ? metadata->frameGeometry() : nullptr;
  const auto* settings = componentOf<UltrasoundMetadata>(images, index);
  if (!geometry || (settings && settings->scanConverted)) return std::nullopt;
  const auto* linear = dynamic_cast<const FrameGeometryLinear*>(geometry);
  if (!linear || linear->steeringAngle() != 0.0) return Eigen::Vector2d::Zero();
  return Eigen::Vector2d(linear->width() / d.width(), linear->depth() / d.height());
}

} // namespace Kelvaris::US
