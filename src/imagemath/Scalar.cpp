#include "imagemath/Scalar.h"

#include "GL/Program.h"

#include <bit>
#include <cstdint>

namespace Kelvaris::ImageMath::internal {

TaggingIndex ScalarGl::tag() const {
  return {"scalar" + m_typeName, {std::bit_cast<std::uint64_t>(m_value)}};
}

void ScalarGl::defineUniforms(std::string& list) const {
  list += glUniform("float", name());
}

void ScalarGl::setUniforms(GL::Program& program) const {
  program.setUniform(name(), static_cast<float>(m_value));
}

} // namespace Kelvaris::ImageMath::internal
