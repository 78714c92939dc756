#include "GL/ContextManager.h"

#include "Core/Log.h"
#include "GL/Check.h"
#include "GL/Context.h"
#include "GL/DriverLock.h"

#include <dlfcn.h>
#include <epoxy/egl.h>
#include <epoxy/gl.h>
#include <fmt/format.h>

#include <array>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Kelvaris::GL {
namespace {

// A plain pointer: a thread-local object with a destructor would keep the library from being unloaded.
thread_local EGLContext t_current = EGL_NO_CONTEXT;

/// libepoxy ends the process when a library that it opens on demand is missing, so their presence is tested before.
bool canOpen(const char* library) {
  void* handle = dlopen(library, RTLD_LAZY | RTLD_LOCAL);
  if (handle) dlclose(handle);
  return handle != nullptr;
}

bool hasExtension(EGLDisplay display, const char* name) {
  const char* extensions = eglQueryString(display, EGL_EXTENSIONS);
  return extensions && fmt::format(" {} ", extensions).find(fmt::format(" {} ", name)) != std::string::npos;
}

EGLDisplay initialized(EGLDisplay display) {
  return display != EGL_NO_DISPLAY && eglInitialize(display, nullptr, nullptr) ? display : EGL_NO_DISPLAY;
}

EGLDisplay openDisplay() {
  // Asked by name: libepoxy's own eglGetPlatformDisplay wants a display before there is one.
  const auto getPlatformDisplay =
      reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
  if (getPlatformDisplay && hasExtension(EGL_NO_DISPLAY, "EGL_MESA_platform_surfaceless")) {
    const EGLDisplay display =
        initialized(getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
    if (display != EGL_NO_DISPLAY) return display;
  }
  return initialized(eglGetDisplay(EGL_DEFAULT_DISPLAY));
}

} // namespace

struct ContextManager::Impl {
  std::mutex mutex;
  bool tried = false;
  std::string reason; ///< why there is no OpenGL
  std::optional<bool> software;
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLConfig config = nullptr;
  EGLContext root = EGL_NO_CONTEXT; ///< never current: the one that all others share with
  std::vector<EGLContext> idle;

  /// With the mutex held: opens the display at the first call. Returns whether there is OpenGL.
  bool ready();
  std::string open();
  EGLContext create(EGLContext shared) const;
  EGLContext acquire();
  void release(EGLContext context);
};

struct ContextManager::ActivationGuard::Previous {
  EGLenum api;
  EGLDisplay display;
  EGLContext context;
  EGLSurface draw;
  EGLSurface read;
};

bool ContextManager::Impl::ready() {
  if (!tried) {
    tried = true;
    reason = open();
    if (!reason.empty()) Log::debug("ContextManager", "{}", reason);
  }
  return reason.empty();
}

std::string ContextManager::Impl::open() {
  if (!canOpen("libEGL.so.1"))
    return "OpenGL isn't available: libEGL.so.1 can't be loaded; install the machine's OpenGL driver or Mesa (libegl1)";
  if (!canOpen("libGL.so.1") && !canOpen("libOpenGL.so.0"))
    return "OpenGL isn't available: neither libGL.so.1 nor libOpenGL.so.0 can be loaded; install libgl1 or libopengl0";

  const EGLenum api = eglQueryAPI();
  struct RestoreApi {
    EGLenum api;
    ~RestoreApi() { eglBindAPI(api); }
  } const restore{api};

  display = openDisplay();
  if (display == EGL_NO_DISPLAY)
    return "OpenGL isn't available: no EGL display can be opened; install the machine's OpenGL driver or Mesa "
           "(libegl-mesa0, libgl1-mesa-dri)";
  if (!eglBindAPI(EGL_OPENGL_API)) return "OpenGL isn't available: the EGL driver offers OpenGL ES only";
  if (!hasExtension(display, "EGL_KHR_surfaceless_context"))
    return "OpenGL isn't available: the EGL driver lacks EGL_KHR_surfaceless_context";
  const std::array<EGLint, 5> wanted{EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
  EGLint found = 0;
  if (!eglChooseConfig(display, wanted.data(), &config, 1, &found) || found < 1)
    return "OpenGL isn't available: the EGL driver has no configuration for OpenGL";
  root = create(EGL_NO_CONTEXT);
  if (root == EGL_NO_CONTEXT)
    return fmt::format("OpenGL isn't available: the EGL driver \"{}\" can't make a core profile context of version 4.5",
                       eglQueryString(display, EGL_VENDOR));
  return {};
}

EGLContext ContextManager::Impl::create(EGLContext shared) const {
  const std::array<EGLint, 7> attributes{
      EGL_CONTEXT_MAJOR_VERSION,           4,       EGL_CONTEXT_MINOR_VERSION, 5, EGL_CONTEXT_OPENGL_PROFILE_MASK,
      EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT, EGL_NONE};
  return eglCreateContext(display, config, shared, attributes.data());
}

EGLContext ContextManager::Impl::acquire() {
  const std::scoped_lock lock(mutex);
  if (!ready()) throw Error(reason);
  if (idle.empty()) {
    eglBindAPI(EGL_OPENGL_API);
    const EGLContext context = create(root);
    if (context == EGL_NO_CONTEXT)
      throw Error(fmt::format("another OpenGL context can't be made: EGL error {:#x}", eglGetError()));
    return context;
  }
  const EGLContext context = idle.back();
  idle.pop_back();
  return context;
}

void ContextManager::Impl::release(EGLContext context) {
  const std::scoped_lock lock(mutex);
  idle.push_back(context);
}

ContextManager::ContextManager() : m_impl(std::make_unique<Impl>()) {}

// The driver's own exit handlers may have run by now, so its contexts are left to the end of the process.
ContextManager::~ContextManager() = default;

ContextManager& ContextManager::get() {
  static ContextManager instance;
  return instance;
}

bool ContextManager::isAvailable() {
  const std::scoped_lock lock(m_impl->mutex);
  return m_impl->ready();
}

std::string ContextManager::unavailableReason() {
  const std::scoped_lock lock(m_impl->mutex);
  m_impl->ready();
  return m_impl->reason;
}

bool ContextManager::isSoftware() {
  if (!isAvailable()) return false;
  {
    const std::scoped_lock lock(m_impl->mutex);
    if (m_impl->software) return *m_impl->software;
  }
  const ActivationGuard guard;
  const std::string renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
  bool software = false;
  for (const char* name : {"llvmpipe", "softpipe", "swrast", "SWR", "SwiftShader", "Software Rasterizer"})
    software = software || renderer.find(name) != std::string::npos;
  const std::scoped_lock lock(m_impl->mutex);
  m_impl->software = software;
  return software;
}

bool ContextManager::hasCurrent() {
  return t_current != EGL_NO_CONTEXT;
}

std::unique_ptr<Context> ContextManager::createContext() {
  return std::make_unique<Context>();
}

void ContextManager::runWithOpenGL(const std::function<void()>& f) {
  const ActivationGuard guard;
  f();
}

ContextManager::ActivationGuard::ActivationGuard() {
  if (hasCurrent()) return;
  Impl& impl = *get().m_impl;
  if (!get().isAvailable()) throw Error(get().unavailableReason());
  auto previous = std::make_unique<Previous>();
  previous->api = eglQueryAPI();
  previous->display = eglGetCurrentDisplay();
  previous->context = eglGetCurrentContext();
  previous->draw = eglGetCurrentSurface(EGL_DRAW);
  previous->read = eglGetCurrentSurface(EGL_READ);
  const EGLContext context = impl.acquire();
  if (!eglMakeCurrent(impl.display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) {
    const EGLint code = eglGetError();
    impl.release(context);
    eglBindAPI(previous->api);
    throw Error(fmt::format("an OpenGL context can't be made current on this thread: EGL error {:#x}", code));
  }
  t_current = context;
  m_previous = std::move(previous);
  // Rows of images lie in memory without padding.
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  // An error that earlier, unchecked calls left behind isn't the next checked call's.
  while (glGetError() != GL_NO_ERROR) {
  }
}

ContextManager::ActivationGuard::~ActivationGuard() {
  if (!m_previous) return;
  Impl& impl = *get().m_impl;
  {
    const DriverLock lock;
    glFinish();
    // Releasing needs the API that the context belongs to, and another may be bound by now.
    eglBindAPI(EGL_OPENGL_API);
    eglMakeCurrent(impl.display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
  }
  impl.release(t_current);
  t_current = EGL_NO_CONTEXT;
  eglBindAPI(m_previous->api);
  if (m_previous->context != EGL_NO_CONTEXT)
    eglMakeCurrent(m_previous->display, m_previous->draw, m_previous->read, m_previous->context);
}

} // namespace Kelvaris::GL
