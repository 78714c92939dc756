#include "US/FrameGeometry.h"

#include "Core/Log.h"
#include "Core/Properties.h"
#include "GL/AbstractInclude.h"
#ifdef KELVARIS_HAVE_GL
#include "US/TransformInclude.h"
#endif

#include <cmath>
#include <limits>
#include <typeinfo>

namespace Kelvaris::US {
namespace {

bool approx(double a, double b, double tolerance) {
  return a == b || (std::isnan(a) && std::isnan(b)) || std::abs(a - b) <= tolerance;
}

} // namespace

Eigen::Vector2d FrameGeometry::convertPoint(const Eigen::Vector2d& point, Direction direction) const {
  Eigen::Vector2d converted =
      direction == NormalizedToPhysical ? toPhysical(point.x(), point.y()) : toNormalized(point.x(), point.y());
  if (!converted.allFinite()) converted.setConstant(std::numeric_limits<double>::quiet_NaN());
  return converted;
}

std::unique_ptr<GL::AbstractInclude> FrameGeometry::transformInclude() const {
#ifdef KELVARIS_HAVE_GL
  Shader code = shader();
  code.text += R"(
vec2 @ImageToNormalized(vec2 p) {
  return @ToNormalized(p - vec2(@OffsetX, @OffsetY));
}
)";
  code.uniforms.emplace_back("OffsetX", m_offset.x());
  code.uniforms.emplace_back("OffsetY", m_offset.y());
  return std::make_unique<TransformInclude>(std::move(code.text), std::move(code.uniforms));
#else
  return nullptr;
#endif
}

std::unique_ptr<FrameGeometry> FrameGeometry::convertTo(CoordinateSystem target) const {
  std::unique_ptr<FrameGeometry> converted = clone();
  if (target == m_coordinateSystem) return converted;
  const Eigen::Vector3d spacing = m_imgDesc.spacing();
  if (!m_imgDesc.isValid() || !(spacing.minCoeff() > 0.0) || !spacing.allFinite()) {
    Log::error(type(), "Pixels and mm can't be converted by the spacing {} x {} x {} of an image of {}", spacing.x(),
               spacing.y(), spacing.z(), m_imgDesc.toString());
    return nullptr;
  }
  if (isIsotropic() && !approx(spacing.x(), spacing.y(), 1e-9 * spacing.y())) {
    Log::error(type(), "A {} has no lengths in pixels of {} x {} mm; pixels must be as wide as high", type(),
               spacing.x(), spacing.y());
    return nullptr;
  }
  Eigen::Vector3d factors = spacing;
  if (target == CoordinateSystem::Pixel) factors = spacing.cwiseInverse();
  converted->scale(factors.head<2>());
  converted->m_offset = m_offset.cwiseProduct(factors);
  converted->m_coordinateSystem = target;
  return converted;
}

bool FrameGeometry::isApprox(const FrameGeometry& other, double tolerance, bool compareImages) const {
  if (typeid(*this) != typeid(other) || m_coordinateSystem != other.m_coordinateSystem ||
      !approx(m_depth, other.m_depth, tolerance))
    return false;
  for (int axis = 0; axis < 3; ++axis)
    if (!approx(m_offset[axis], other.m_offset[axis], tolerance)) return false;
  const std::vector<Value> mine = values();
  const std::vector<Value> theirs = other.values();
  for (std::size_t i = 0; i < mine.size(); ++i)
    if (!approx(mine[i].value, theirs[i].value, tolerance)) return false;
  return !compareImages || (m_imgDesc.isApprox(other.m_imgDesc) && m_imgDescPrescan.isApprox(other.m_imgDescPrescan));
}

void FrameGeometry::configure(const Properties* properties) {
  if (properties) read(*properties);
}

bool FrameGeometry::read(const Properties& properties) {
  std::string storedType = type();
  properties.param("type", storedType);
  if (storedType != type()) {
    Log::error(type(), "A stored frame geometry of type \"{}\" can't be read into a {}", storedType, type());
    return false;
  }

  const auto readNumber = [&](const char* key, bool required, double& value) {
    if (!properties.hasParam(key) && !required) return true;
    if (properties.param(key, value)) return true;
    Log::error(type(), "Incomplete properties during configure: a {} needs a number under \"{}\"", type(), key);
    return false;
  };
  const auto readOptional = [&](const char* key, auto& value) {
    if (!properties.hasParam(key) || properties.param(key, value)) return true;
    Log::error(type(), "Frame geometry not changed, as its \"{}\" can't be read", key);
    return false;
  };

  double depth = 0.0;
  if (!readNumber("depth", true, depth)) return false;
  std::vector<double> numbers;
  for (const Value& value : values()) {
    double number = value.fallback;
    if (!readNumber(value.key, value.required, number)) return false;
    numbers.push_back(number);
  }
  int system = static_cast<int>(CoordinateSystem::Image);
  Eigen::Vector3d offset = Eigen::Vector3d::Zero();
  if (!readOptional("coordinateSystem", system) || !readOptional("offset", offset)) return false;
  if (system != static_cast<int>(CoordinateSystem::Pixel) && system != static_cast<int>(CoordinateSystem::Image)) {
    Log::error(type(), "Unknown coordinateSystem {} during configure; it must be 0 (pixels) or 1 (mm)", system);
    return false;
  }
  if (const std::string problem = contradiction(depth, numbers); !problem.empty()) {
    Log::error(type(), "{}", problem);
    return false;
  }

  m_coordinateSystem = static_cast<CoordinateSystem>(system);
  m_offset = offset;
  setDepth(depth);
  setValues(numbers);
  return true;
}

void FrameGeometry::configuration(Properties* properties) const {
  if (!properties) return;
  properties->setParam("type", type());
  properties->setParam("depth", m_depth);
  for (const Value& value : values())
    properties->setParam(value.key, value.value);
  if (m_coordinateSystem != CoordinateSystem::Image)
    properties->setParam("coordinateSystem", static_cast<int>(m_coordinateSystem));
  if (m_offset != Eigen::Vector3d::Zero()) properties->setParam("offset", m_offset);
}

} // namespace Kelvaris::US
