#include "beamforming/SamplingPositionMap.h"

#include "Core/Log.h"
#include "beamforming/FramePositions.h"

#ifdef KELVARIS_HAVE_GL
#include "GL/ContextManager.h"
#endif

#include <limits>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "BeamformingAlgorithm";
constexpr float kInvalid = std::numeric_limits<float>::quiet_NaN();

bool isLine(const Geometry::Polygon2D& roi) {
  return roi.points().size() == 2;
}

void setPosition(TypedImage<float>& map, const Eigen::Vector2f& position, int x, int y, int slice) {
  map.setValue(position.x(), x, y, slice, 0);
  map.setValue(position.y(), x, y, slice, 1);
}

std::shared_ptr<TypedImage<float>> newMap(const ImageDescriptor& prescan, int width, int slices) {
  ImageDescriptor descriptor = prescan;
  descriptor.setPixelType(PixelFloat);
  descriptor.setDimensions({width, prescan.height(), slices}, 2);
  return std::make_shared<TypedImage<float>>(descriptor);
}

std::shared_ptr<TypedImage<float>> lineMap(const FrameGeometry& geometry, const BeamformingRois& rois) {
  auto map = newMap(geometry.imgDescPrescan(), rois.size(), 1);
  const int height = map->height();
  const double t0 = 0.5 / height;
  const double t1 = (0.5 + (height - 1)) / height;
  const double step = (t1 - t0) / (height - 1);
  for (int i = 0; i < rois.size(); ++i) {
    const auto& vertices = rois.roi(i).points();
    const Eigen::Vector2d shallow = geometry.convertPoint(vertices[0], FrameGeometry::PhysicalToNormalized);
    const Eigen::Vector2d deep = geometry.convertPoint(vertices[1], FrameGeometry::PhysicalToNormalized);
    for (int y = 0; y < height; ++y) {
      // In a map of one row the step and t are NaN, which no comparison leaves out.
      const double t = t0 + y * step;
      const bool outside = t < shallow.y() || t > deep.y();
      const Eigen::Vector2d position = geometry.convertPoint({shallow.x(), t}, FrameGeometry::NormalizedToPhysical);
      setPosition(*map, outside ? Eigen::Vector2f::Constant(kInvalid) : Eigen::Vector2f(position.cast<float>()), i, y,
                  0);
    }
  }
  return map;
}

std::shared_ptr<TypedImage<float>> framePositions(const FrameGeometry& geometry) {
#ifdef KELVARIS_HAVE_GL
  if (GL::ContextManager::get().isAvailable()) return framePositionsWithGL(geometry);
  static std::once_flag warned;
  std::call_once(warned, [] {
    Log::warning(kCategory, "The positions of the pixels are computed on the host: {}",
                 GL::ContextManager::get().unavailableReason());
  });
#endif
  return framePositionsOnHost(geometry);
}

std::shared_ptr<TypedImage<float>> polygonMap(const FrameGeometry& geometry, const BeamformingRois& rois) {
  const auto positions = framePositions(geometry);
  auto map = newMap(geometry.imgDescPrescan(), positions->width(), rois.size());
  const int count = rois.size();
#pragma omp parallel for
  for (int i = 0; i < count; ++i) {
    const Geometry::Polygon2D& roi = rois.roi(i);
    for (int y = 0; y < map->height(); ++y)
      for (int x = 0; x < map->width(); ++x) {
        const Eigen::Vector2f position(positions->value(x, y, 0, 0), positions->value(x, y, 0, 1));
        const bool inside = roi.includesPoint(position.cast<double>());
        setPosition(*map, inside ? position : Eigen::Vector2f::Constant(kInvalid), x, y, i);
      }
  }
  return map;
}

} // namespace

SamplingPositionMap::SamplingPositionMap(std::shared_ptr<const FrameGeometry> geometry,
                                         std::shared_ptr<const BeamformingRois> regions)
    : frameGeometry(std::move(geometry)), rois(std::move(regions)) {
  if (!frameGeometry || !rois || rois->size() < 1) {
    Log::error(kCategory, "Invalid frame geometry or beamforming ROIs");
    throw std::runtime_error("Invalid frame geometry or beamforming ROIs");
  }
  const bool lines = isLine(rois->roi(0));
  for (int i = 1; i < rois->size(); ++i)
    if (isLine(rois->roi(i)) != lines) {
      Log::error(kCategory, "BeamformingRois must all be of the same type (all line ROIs or all polygonal ROIs), but "
                            "mixed types were given.");
      throw std::runtime_error("BeamformingRois: mixed ROI types (line vs polygon). All ROIs must be either lines (two "
                               "vertices) or polygons.");
    }
  image = std::make_shared<SharedImage>(lines ? lineMap(*frameGeometry, *rois) : polygonMap(*frameGeometry, *rois));
}

} // namespace Kelvaris::US
