#include "GL/Context.h"

#include "Core/Log.h"
#include "GL/Check.h"

namespace Kelvaris::GL {

Context::Context() : m_thread(std::this_thread::get_id()) {
  if (ContextManager::hasCurrent())
    throw Error("this thread has an OpenGL context already; end it before another one is made");
  m_guard = std::make_unique<ContextManager::ActivationGuard>();
}

Context::~Context() {
  if (std::this_thread::get_id() == m_thread) return;
  Log::error("GL::Context", "An OpenGL context ends on another thread than the one that it is current on; it is lost");
  static_cast<void>(m_guard.release());
}

} // namespace Kelvaris::GL
