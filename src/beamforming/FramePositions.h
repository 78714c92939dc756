#pragma once

#include "Lib/MemImage.h"
#include "US/FrameGeometry.h"

#include <memory>

namespace Kelvaris::US {

/// The physical position of every pixel centre of a frame: pixel (i, j) of a w x h frame (`imgDescPrescan()`) has the
/// frame coordinates (x, y), in mm, of the normalised point ((i + 0.5) / w, (j + 0.5) / h). The image has the frame's
/// width and height, one slice and two float channels, x and y; the rest of its descriptor is that of
/// `imgDescPrescan()`.
///
/// Both functions give the same positions within the rounding of single precision, and throw std::runtime_error or
/// std::invalid_argument if the image can't be made.

/// One compute pass in OpenGL, for geometries that have a transform include. Makes a context current for itself.
std::shared_ptr<TypedImage<float>> framePositionsWithGL(const FrameGeometry& geometry);

/// In double precision on the host, rounded to float at the end.
std::shared_ptr<TypedImage<float>> framePositionsOnHost(const FrameGeometry& geometry);

} // namespace Kelvaris::US
