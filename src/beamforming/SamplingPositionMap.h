#pragma once

#include "Lib/SharedImage.h"
#include "US/FrameGeometry.h"
#include "model/BeamformingRois.h"

#include <memory>

namespace Kelvaris::US {

/// At which physical position each output pixel of the beamformer lies, and in which events it exists at all. `image`
/// holds float positions (channel 0: x, channel 1: y, mm, in the coordinates of the regions' vertices), NaN where an
/// event doesn't cover the pixel. The rest of its descriptor is that of the geometry's `imgDescPrescan()`.
///
///   regions                        width                height              slices
///   lines (two vertices each)      number of regions    of the prescan      1
///   polygons (any other number)    of the prescan       of the prescan      number of regions
///
/// A line runs along one column in normalised coordinates, straight down from its first vertex, which must be the
/// shallow end, to the depth of its second. Row y stands for the centre of the y-th of as many equal depth cells as
/// there are rows. A polygon masks the positions of the whole frame; these come from OpenGL where there is any, else
/// from the host.
///
/// Complete once constructed and never changed. Costs two floats a pixel in main memory, and as long as it lives what
/// the beamformer uploads of it.
class SamplingPositionMap {
public:
  /// Throws std::runtime_error, after logging an error, if the geometry or the regions are missing, if lines and
  /// polygons are mixed, or if the compute program can't be made; GL::Error and std::invalid_argument if an image
  /// can't.
  SamplingPositionMap(std::shared_ptr<const FrameGeometry> frameGeometry, std::shared_ptr<const BeamformingRois> rois);

  std::shared_ptr<const FrameGeometry> frameGeometry;
  std::shared_ptr<const BeamformingRois> rois;
  std::shared_ptr<SharedImage> image;
};

} // namespace Kelvaris::US
