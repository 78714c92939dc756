#include "GL/Check.h"

#include <epoxy/gl.h>
#include <fmt/format.h>

#include <string>

namespace Kelvaris::GL::Detail {
namespace {

std::string errorName(GLenum code) {
  switch (code) {
  case GL_INVALID_ENUM:
    return "GL_INVALID_ENUM";
  case GL_INVALID_VALUE:
    return "GL_INVALID_VALUE";
  case GL_INVALID_OPERATION:
    return "GL_INVALID_OPERATION";
  case GL_INVALID_FRAMEBUFFER_OPERATION:
    return "GL_INVALID_FRAMEBUFFER_OPERATION";
  case GL_OUT_OF_MEMORY:
    return "GL_OUT_OF_MEMORY";
  case GL_CONTEXT_LOST:
    return "GL_CONTEXT_LOST";
  default:
    return fmt::format("error {:#x}", code);
  }
}

} // namespace

void check(const char* call, const char* file, int line) {
  const GLenum code = glGetError();
  if (code != GL_NO_ERROR) throw Error(fmt::format("{}:{}: {}: {}", file, line, call, errorName(code)));
}

} // namespace Kelvaris::GL::Detail
