#include "GL/PixelStore.h"

#include "GL/Program.h"
#include "Lib/ImageDescriptor.h"

#include <fmt/format.h>

#include <limits>
#include <type_traits>

namespace Kelvaris::GL {

PixelStore::PixelStore(int pixelType) {
  dispatchPixelType(pixelType, [&]<typename T>() {
    m_isInteger = std::is_integral_v<T>;
    m_lowest = static_cast<float>(std::numeric_limits<T>::lowest());
    m_highest = static_cast<float>(std::numeric_limits<T>::max());
  });
}

std::string PixelStore::source(const std::string& prefix) const {
  // Comparisons with NaN may be optimised away; its bits can't. Adding 0.5 would lift the number below 0.5 to 1.
  return fmt::format(R"(uniform int {0}IsInteger;
uniform float {0}Lowest;
uniform float {0}Highest;
vec4 {0}Stored(vec4 value) {{
  if ({0}IsInteger == 0) return value;
  bvec4 isNan = greaterThan(floatBitsToUint(value) & 0x7FFFFFFFu, uvec4(0x7F800000u));
  vec4 held = clamp(mix(value, vec4(0.0), isNan), {0}Lowest, {0}Highest);
  vec4 whole = trunc(held);
  return whole + sign(held) * step(0.5, abs(held - whole));
}}
)",
                     prefix);
}

void PixelStore::setArguments(Program& program, const std::string& name) const {
  program.setUniform(name + "IsInteger", m_isInteger ? 1 : 0);
  program.setUniform(name + "Lowest", m_lowest);
  program.setUniform(name + "Highest", m_highest);
}

} // namespace Kelvaris::GL
