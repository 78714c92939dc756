#pragma once

#include <string>

namespace Kelvaris::GL {

class Program;

/// A piece of GLSL that an object contributes to a shader (for example a frame geometry its coordinate conversion),
/// with the uniforms that carry the object's values. All names it declares begin with the prefix, so that a program can
/// hold several. The shader says where the text belongs by a line `#abstract_include prefix`.
class AbstractInclude {
public:
  virtual ~AbstractInclude() = default;

  /// The GLSL text. The same for all objects of one kind: values travel as uniforms.
  virtual std::string source(const std::string& prefix) const = 0;
  /// Sets the uniforms declared by source(name) on an enabled program.
  virtual void setArguments(Program& program, const std::string& name) const = 0;
};

} // namespace Kelvaris::GL
