#include "GL/SyncObject.h"

#include "Core/Log.h"
#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/DriverLock.h"

#include <epoxy/gl.h>

namespace Kelvaris::GL {
namespace {

GLsync fenceOf(void* fence) {
  return static_cast<GLsync>(fence);
}

} // namespace

SyncObject::SyncObject() {
  if (!ContextManager::hasCurrent())
    throw Error("a sync object marks the work of the calling thread's OpenGL context, and the thread has none");
  const DriverLock lock;
  m_fence = KELVARIS_GL_CHECKED(glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0));
}

SyncObject::~SyncObject() {
  try {
    const ContextManager::ActivationGuard guard;
    glDeleteSync(fenceOf(m_fence));
  } catch (const Error& error) {
    Log::warning("GL::SyncObject", "A sync object can't be deleted: {}", error.what());
  }
}

// The thread itself waits and not only its context (glWaitSync): the consumer may go on without OpenGL, and software
// rasterisers may order nothing between contexts.
void SyncObject::wait() const {
  constexpr GLuint64 oneSecond = 1'000'000'000;
  const ContextManager::ActivationGuard guard;
  while (KELVARIS_GL_CHECKED(glClientWaitSync(fenceOf(m_fence), 0, oneSecond)) == GL_TIMEOUT_EXPIRED) {
  }
}

} // namespace Kelvaris::GL
