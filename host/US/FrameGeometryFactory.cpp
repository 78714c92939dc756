#include "US/FrameGeometryFactory.h"

#include "Core/Log.h"
#include "Core/Properties.h"
#include "US/FrameGeometryConvex.h"
#include "US/FrameGeometryConvexSteered.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometrySector.h"

namespace Kelvaris::US {

std::unique_ptr<FrameGeometry> createFrameGeometry(const std::string& type) {
  if (type == "FrameGeometryLinear") return std::make_unique<FrameGeometryLinear>();
  if (type == "FrameGeometrySector") return std::make_unique<FrameGeometrySector>();
  if (type == "FrameGeometryConvex") return std::make_unique<FrameGeometryConvex>();
  if (type == "FrameGeometryConvexSteered") return std::make_unique<FrameGeometryConvexSteered>();
  return nullptr;
}

std::unique_ptr<FrameGeometry> readFrameGeometry(const Properties& properties) {
  std::string type;
  if (!properties.param("type", type)) {
    Log::error("FrameGeometry",
               "Incomplete properties during configure: a frame geometry needs its class under \"type\"");
    return nullptr;
  }
  std::unique_ptr<FrameGeometry> geometry = createFrameGeometry(type);
  if (!geometry) {
    Log::error(
        "FrameGeometry",
        "Unknown frame geometry type \"{}\" during configure; there are FrameGeometryLinear, FrameGeometrySector, "
        "FrameGeometryConvex and FrameGeometryConvexSteered",
        type);
    return nullptr;
  }
  if (!geometry->read(properties)) return nullptr;
  return geometry;
}

} // namespace Kelvaris::US
