#pragma once

#include <functional>
#include <memory>
#include <string>

namespace Kelvaris::GL {

class Context;

/// The process's OpenGL contexts: core profile 4.5, made through EGL without a window (surfaceless platform, else the
/// default display), all shared with one another, so that textures and programs made under one are usable under all.
/// Nothing is touched before the first guard, and a machine without OpenGL is no error until somebody needs one.
/// Contexts live until the process ends. All functions may be called from any thread.
class ContextManager {
public:
  /// Keeps a context current on the calling thread while it lives; must end on the same thread. Guards nest: only the
  /// outermost takes a context. When it ends, all work issued under it is complete and visible to every other context,
  /// and the context that was current before, if any, is current again.
  class ActivationGuard {
  public:
    /// Throws GL::Error with the reason if no context can be had.
    ActivationGuard();
    ~ActivationGuard();
    ActivationGuard(const ActivationGuard&) = delete;
    ActivationGuard& operator=(const ActivationGuard&) = delete;

  private:
    struct Previous;
    std::unique_ptr<Previous> m_previous; ///< set by the outermost guard
  };

  static ContextManager& get();

  /// True if contexts can be had. The first call tries it.
  bool isAvailable();
  /// Why isAvailable() is false, in words; empty if it is true.
  std::string unavailableReason();
  /// True if contexts can be had, and are served by a rasteriser that runs on the processor.
  bool isSoftware();
  /// True if one of these contexts is current on the calling thread.
  static bool hasCurrent();

  /// A context for the calling thread, current from now on for as long as it lives: for threads that work with OpenGL
  /// again and again. Throws GL::Error with the reason if none can be had, or if the thread has one already.
  std::unique_ptr<Context> createContext();
  /// Calls `f` on the calling thread, with a context current there: the present one, or one taken for the call, as by a
  /// guard. Throws GL::Error if none can be had, and what `f` throws.
  void runWithOpenGL(const std::function<void()>& f);

private:
  struct Impl;
  ContextManager();
  ~ContextManager();

  std::unique_ptr<Impl> m_impl;
};

} // namespace Kelvaris::GL
