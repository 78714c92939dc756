#pragma once

#include "US/FrameGeometry.h"

#include <cmath>

namespace Kelvaris::US::Tests {

/// Gives the geometry a Cartesian image that holds it with a margin of some pixels, and the offset that belongs to it.
inline void setCartesianImage(FrameGeometry& geometry, double spacing, int pixelType = PixelUInt8) {
  const Geometry::AlignedBox box = geometry.bounds();
  const auto pixels = [&](int axis) { return static_cast<int>(std::ceil(box.extent()[axis] / spacing)) + 6; };
  ImageDescriptor descriptor(pixelType, pixels(0), pixels(1));
  descriptor.setSpacing({spacing, spacing, 1.0});
  geometry.setImgDesc(descriptor);
  const Eigen::Vector2d centre = box.center();
  geometry.setOffset({-centre.x(), -centre.y(), 0.0});
}

} // namespace Kelvaris::US::Tests
