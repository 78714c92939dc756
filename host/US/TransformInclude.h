#pragma once

#include "GL/AbstractInclude.h"

#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::US {

/// A coordinate conversion as GLSL text and the values of its uniforms. In the text, '@' stands for the prefix; the
/// declarations `uniform float @Name;` are added in front. Values are narrowed to float when they are set.
class TransformInclude : public GL::AbstractInclude {
public:
  using Uniforms = std::vector<std::pair<std::string, double>>;

  TransformInclude(std::string text, Uniforms uniforms) : m_text(std::move(text)), m_uniforms(std::move(uniforms)) {}

  std::string source(const std::string& prefix) const override;
  void setArguments(GL::Program& program, const std::string& name) const override;

private:
  std::string m_text;
  Uniforms m_uniforms;
};

} // namespace Kelvaris::US
