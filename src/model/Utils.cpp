#include "model/Utils.h"

#include "Lib/SharedImageSet.h"
#include "model/FrameAcquisition.h"

namespace Kelvaris::US {

const FrameAcquisition* getFrameAcquisition(const DataComponentList& components) {
  return components.get<FrameAcquisition>();
}

const FrameAcquisition* getFrameAcquisition(const SharedImageSet& images, int frame) {
  const int index = frame == -1 ? images.selection().focus() : frame;
  const FrameAcquisition* ofImage = getFrameAcquisition(images.elementwiseComponents().components(index));
  return ofImage ? ofImage : getFrameAcquisition(images.components());
}

bool isChannelData(const DataComponentList& components) {
  return getFrameAcquisition(components) != nullptr;
}

bool isChannelData(const SharedImageSet& images, int frame) {
  return images.size() > 0 && images.modality() == Data::Ultrasound && getFrameAcquisition(images, frame) != nullptr;
}

} // namespace Kelvaris::US
