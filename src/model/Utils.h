#pragma once

namespace Kelvaris {
class DataComponentList;
class SharedImageSet;
} // namespace Kelvaris

namespace Kelvaris::US {

class FrameAcquisition;

/// The list's first component whose type is exactly FrameAcquisition, or null. Owned by the list.
const FrameAcquisition* getFrameAcquisition(const DataComponentList& components);
/// That of the image of index `frame` (-1: the focused image), else that of the set as a whole, or null. Owned by the
/// set. Throws std::out_of_range for an index below -1.
const FrameAcquisition* getFrameAcquisition(const SharedImageSet& images, int frame = -1);

/// True if the components describe channel data, that is, hold a FrameAcquisition.
bool isChannelData(const DataComponentList& components);
/// True for a set of ultrasound images with a FrameAcquisition, of that image or of the set as a whole.
bool isChannelData(const SharedImageSet& images, int frame = -1);

} // namespace Kelvaris::US
