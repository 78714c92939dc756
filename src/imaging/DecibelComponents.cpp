#include "imaging/DecibelComponents.h"

#include "US/FrameGeometryMetadata.h"

#include <utility>

namespace Kelvaris::US {

DataComponentList decibelComponents(DataComponentList components, int pixelType) {
  auto* const metadata = components.get<FrameGeometryMetadata>();
  if (!metadata || !metadata->frameGeometry()) return components;
  auto geometry = metadata->frameGeometry()->clone();
  const auto updated = [&](ImageDescriptor descriptor) {
    if (descriptor.isValid()) {
      descriptor.setPixelType(pixelType);
      descriptor.setChannels(1);
    }
    return descriptor;
  };
  geometry->setImgDesc(updated(geometry->imgDesc()));
  geometry->setImgDescPrescan(updated(geometry->imgDescPrescan()));
  metadata->setFrameGeometry(std::move(geometry));
  return components;
}

} // namespace Kelvaris::US
