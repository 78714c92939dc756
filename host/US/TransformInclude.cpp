#include "US/TransformInclude.h"

#include "GL/Program.h"

#include <fmt/format.h>

namespace Kelvaris::US {

std::string TransformInclude::source(const std::string& prefix) const {
  std::string text;
  for (const auto& [uniform, value] : m_uniforms)
    text += fmt::format("uniform float {}{};\n", prefix, uniform);
  for (const char c : m_text)
    if (c == '@')
      text += prefix;
    else
      text += c;
  return text;
}

void TransformInclude::setArguments(GL::Program& program, const std::string& name) const {
  for (const auto& [uniform, value] : m_uniforms)
    program.setUniform(name + uniform, static_cast<float>(value));
}

} // namespace Kelvaris::US
