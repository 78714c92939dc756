#include "US/FanMask.h"

#include "Lib/MemImage.h"
#include "US/FrameGeometryFactory.h"
#ifdef KELVARIS_HAVE_GL
#include "GL/Program.h"
#endif

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris::US {
namespace {

/// The in-plane part of textureToImageMatrix(): image = extent * (texture - 0.5).
Eigen::Vector2d extent(const ImageDescriptor& descriptor) {
  return descriptor.textureToImageMatrix().diagonal().head<2>();
}

} // namespace

FanMask::FanMask(const FrameGeometry& geometry)
    : m_geometry(geometry.clone()), m_transform(geometry.transformInclude()) {
  if (!geometry.imgDesc().isValid())
    throw std::invalid_argument(fmt::format("A fan mask needs a {} with the descriptor of its image, but it has {}",
                                            geometry.type(), geometry.imgDesc().toString()));
}

FanMask::~FanMask() = default;

int FanMask::deviceStrategy() const {
  return m_transform ? 2 : 0;
}

void FanMask::evaluate(const MemImage& image, int x, int y, int /*z*/, int count, unsigned char* valid) const {
  const Eigen::Vector2d size = extent(m_geometry->imgDesc());
  const Eigen::Vector2d offset = m_geometry->offset().head<2>();
  const double t = (y + 0.5) / image.height() - 0.5;
  for (int i = 0; i < count; ++i) {
    const double s = (x + i + 0.5) / image.width() - 0.5;
    const Eigen::Vector2d normalized = m_geometry->convertPoint(Eigen::Vector2d(s * size.x(), t * size.y()) - offset,
                                                                FrameGeometry::PhysicalToNormalized);
    // NaN is outside.
    valid[i] = (normalized.array() >= 0.0).all() && (normalized.array() <= 1.0).all() ? 1 : 0;
  }
}

Properties FanMask::configuration() const {
  Properties properties;
  m_geometry->configuration(&properties);
  return properties;
}

std::shared_ptr<const FanMask> FanMask::create(const Properties& configuration, const ImageDescriptor& image) {
  const std::unique_ptr<FrameGeometry> geometry = readFrameGeometry(configuration);
  if (!geometry) return nullptr;
  geometry->setImgDesc(image);
  return std::make_shared<FanMask>(*geometry);
}

std::string FanMask::source(const std::string& prefix) const {
  if (!m_transform) return {};
  // What isn't finite is told by its bits: comparisons with NaN may be optimised away.
  return m_transform->source(prefix) + fmt::format(R"(
uniform vec2 {0}Extent;
bool {0}IsValid(vec4 texel, vec2 position) {{
  vec2 uv = {0}ImageToNormalized((position - 0.5) * {0}Extent);
  bvec2 finite = lessThan(floatBitsToUint(uv) & 0x7FFFFFFFu, uvec2(0x7F800000u));
  return all(finite) && all(greaterThanEqual(uv, vec2(0.0))) && all(lessThanEqual(uv, vec2(1.0)));
}}
)",
                                                   prefix);
}

void FanMask::setArguments([[maybe_unused]] GL::Program& program, [[maybe_unused]] const std::string& name) const {
#ifdef KELVARIS_HAVE_GL
  m_transform->setArguments(program, name);
  program.setUniform(name + "Extent", Eigen::Vector2f(extent(m_geometry->imgDesc()).cast<float>()));
#endif
}

} // namespace Kelvaris::US
