#pragma once

#include "GL/ContextManager.h"

#include <memory>
#include <thread>

namespace Kelvaris::GL {

/// An OpenGL context that is current, for its whole life, on the thread that asked for it
/// (ContextManager::createContext()), and on no other. It must end on that thread, too: elsewhere it can't be taken off
/// the thread, so its destructor logs an error and leaves it there.
class Context {
public:
  /// Throws GL::Error with the reason if no context can be had, or if the thread has one already.
  Context();
  ~Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

private:
  std::unique_ptr<ContextManager::ActivationGuard> m_guard;
  std::thread::id m_thread;
};

} // namespace Kelvaris::GL
