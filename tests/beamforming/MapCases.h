#pragma once

#include "Core/Polygon2D.h"
#include "US/FrameGeometryLinear.h"
#include "model/BeamformingRois.h"

#include <initializer_list>
#include <memory>

namespace Kelvaris::US::Tests {

/// A frame of 20 mm width and 40 mm depth with a pre-scan image of `width` x `height` shorts.
inline std::shared_ptr<FrameGeometryLinear> linearFrame(int width, int height) {
  auto geometry = std::make_shared<FrameGeometryLinear>();
  geometry->setWidth(20);
  geometry->setDepth(40);
  ImageDescriptor descriptor(PixelInt16, width, height, 3, 1);
  descriptor.setSpacing({1.0, 40.0 / (height - 1), 1.0});
  geometry->setImgDescPrescan(descriptor);
  return geometry;
}

inline std::shared_ptr<BeamformingRois> rois(std::initializer_list<std::vector<Eigen::Vector2d>> polygons) {
  auto result = std::make_shared<BeamformingRois>();
  for (const auto& points : polygons)
    result->add(Geometry::Polygon2D(points));
  return result;
}

} // namespace Kelvaris::US::Tests
