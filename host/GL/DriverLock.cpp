#include "GL/DriverLock.h"

#include <epoxy/gl.h>

#include <string_view>

namespace Kelvaris::GL {
namespace {

bool isNeeded() {
  static const bool needed =
      std::string_view(reinterpret_cast<const char*>(glGetString(GL_RENDERER))).find("llvmpipe") !=
      std::string_view::npos;
  return needed;
}

} // namespace

DriverLock::DriverLock() {
  static std::recursive_mutex mutex;
  if (isNeeded()) m_lock = std::unique_lock(mutex);
}

} // namespace Kelvaris::GL
