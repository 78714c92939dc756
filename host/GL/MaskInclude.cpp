#include "GL/MaskInclude.h"

#include "GL/Program.h"
#include "Lib/IntensityMask.h"

#include <fmt/format.h>

#include <cmath>

namespace Kelvaris::GL {
namespace {

class IntensityMaskInclude : public AbstractInclude {
public:
  explicit IntensityMaskInclude(const IntensityMask& mask) : m_value(static_cast<float>(mask.value())) {}

  std::string source(const std::string& prefix) const override {
    // Comparisons with NaN may be optimised away; its bits can't.
    return fmt::format(R"(uniform float {0}Value;
uniform int {0}ValueIsNan;
bool {0}IsValid(vec4 texel, vec2 position) {{
  bvec4 isNan = greaterThan(floatBitsToUint(texel) & 0x7FFFFFFFu, uvec4(0x7F800000u));
  return !any({0}ValueIsNan != 0 ? isNan : equal(texel, vec4({0}Value)));
}}
)",
                       prefix);
  }

  void setArguments(Program& program, const std::string& name) const override {
    program.setUniform(name + "Value", m_value);
    program.setUniform(name + "ValueIsNan", std::isnan(m_value) ? 1 : 0);
  }

private:
  float m_value;
};

} // namespace

std::shared_ptr<const AbstractInclude> maskInclude(const std::shared_ptr<const Mask>& mask) {
  if (!mask || mask->deviceStrategy() == 0) return nullptr;
  if (auto include = std::dynamic_pointer_cast<const AbstractInclude>(mask)) return include;
  if (const auto* intensity = dynamic_cast<const IntensityMask*>(mask.get()))
    return std::make_shared<IntensityMaskInclude>(*intensity);
  return nullptr;
}

} // namespace Kelvaris::GL
