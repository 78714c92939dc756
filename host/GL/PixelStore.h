#pragma once

#include "GL/AbstractInclude.h"

#include <string>

namespace Kelvaris::GL {

/// What becomes of a shader's result in an image of a pixel type, as a piece of a shader:
///
///   vec4 <prefix>Stored(vec4 value)
///
/// For integer types the value is rounded half away from zero and clamped to the type, NaN becomes 0, so that the
/// texture holds what main memory will; for all others it stays as it is.
class PixelStore : public AbstractInclude {
public:
  explicit PixelStore(int pixelType);

  std::string source(const std::string& prefix) const override;
  void setArguments(Program& program, const std::string& name) const override;

private:
  bool m_isInteger = false;
  float m_lowest = 0.0f;
  float m_highest = 0.0f;
};

} // namespace Kelvaris::GL
