#include "imagemath/Array.h"

#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/Program.h"
#include "imagemath/GlEvaluation.h"

#include <fmt/format.h>

#include <bit>
#include <cstdint>
#include <stdexcept>

namespace Kelvaris::ImageMath::internal {

int imageStrategy(const ImageDescriptor& descriptor) {
  const int type = descriptor.pixelType();
  return descriptor.channels() < 5 && type != PixelDouble && type != PixelInt32 && type != PixelUInt32 ? 2 : 0;
}

void checkSameExtent(const ImageDescriptor& image, const ImageDescriptor& target) {
  if (image.dimensions() != target.dimensions())
    throw std::invalid_argument(fmt::format("An image of {} can't be read pixel by pixel for one of {}; without a "
                                            "coordinate mapping the extents must be the same",
                                            image.toString(), target.toString()));
}

std::shared_ptr<const MemImage> memOf(const SharedImage& image) {
  return image.mem();
}

std::shared_ptr<const MemImage> memOf(const MemImage& image) {
  return {std::shared_ptr<const void>(), &image};
}

const ImageDescriptor& ArrayGl::descriptor() const {
  return m_shared ? m_shared->descriptor() : m_mem->descriptor();
}

bool ArrayGl::isScaled() const {
  return !m_access.raw && (descriptor().scale() != 1.0 || descriptor().shift() != 0.0);
}

int ArrayGl::channels() const {
  return descriptor().channels();
}

std::string ArrayGl::pixelString() const {
  return m_access.mapped ? fmt::format("mapped(pixel, {0}Offset, {0}Axes)", name()) : "pixel";
}

std::string ArrayGl::positionString() const {
  return fmt::format("((vec2({}.xy) + 0.5) / vec2(extent({}).xy))", pixelString(), name());
}

std::string ArrayGl::isInsideString() const {
  if (!m_access.mapped || m_access.wrap != kClampToBorder) return "true";
  return fmt::format("isInside({}, {})", name(), pixelString());
}

std::string ArrayGl::evalString(bool stored) const {
  std::string texel = fmt::format("fetch({}, pixel)", name());
  if (m_access.mapped && m_access.wrap == kClampToBorder)
    texel = fmt::format("fetchOrBorder({0}, {1}, {0}Border)", name(), pixelString());
  else if (m_access.mapped)
    texel = fmt::format("fetchOrEdge({}, {})", name(), pixelString());
  const std::string sample = texel + "." + std::string("rgba").substr(0, static_cast<std::size_t>(channels()));
  return stored || !isScaled() ? sample : fmt::format("{0} / {1}Scale - {1}Shift", sample, name());
}

TaggingIndex ArrayGl::tag() const {
  TaggingIndex index = {"array", {reinterpret_cast<std::uintptr_t>(image()), m_access.raw, m_access.mapped}};
  if (!m_access.mapped) return index;
  for (int i = 0; i < 3; ++i)
    for (const int value : {m_access.offset[i], m_access.axes[i]})
      index.value.push_back(static_cast<std::uint64_t>(value));
  index.value.push_back(m_access.wrap);
  for (int i = 0; i < 4; ++i)
    index.value.push_back(std::bit_cast<std::uint32_t>(m_access.border[i]));
  return index;
}

void ArrayGl::defineUniforms(std::string& list) const {
  list += glUniform(descriptor().slices() > 1 ? "sampler2DArray" : "sampler2D", name());
  if (isScaled()) list += glUniform("float", name() + "Scale") + glUniform("float", name() + "Shift");
  if (!m_access.mapped) return;
  list += glUniform("ivec3", name() + "Offset") + glUniform("ivec3", name() + "Axes");
  if (m_access.wrap == kClampToBorder) list += glUniform("vec4", name() + "Border");
}

void ArrayGl::setUniforms(GL::Program& program) const {
  if (m_shared)
    m_texture = m_shared->sharedCustom<GlImage>();
  else
    m_texture = std::make_shared<GlImage>(*m_mem);
  program.bindTexture(name(), *m_texture, {m_access.magFilter, m_access.wrap, m_access.border});
  program.setUniform(name() + "Scale", static_cast<float>(descriptor().scale()));
  program.setUniform(name() + "Shift", static_cast<float>(descriptor().shift()));
  program.setUniform(name() + "Offset", m_access.offset);
  program.setUniform(name() + "Axes", m_access.axes);
  program.setUniform(name() + "Border", m_access.border);
}

bool ArrayGl::assignGl(const GlExprInterface& expr) const {
  return m_target && evaluateGl(expr, *m_target, m_access.raw);
}

} // namespace Kelvaris::ImageMath::internal
