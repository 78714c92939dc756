#include "GL/ContextManager.h"

#include "GL/Check.h"
#include "GL/GlImage.h"
#include "RequireGL.h"
#include "support/ErrorOf.h"
#include "support/Samples.h"

#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <latch>
#include <thread>

namespace Kelvaris {
namespace {

using Guard = GL::ContextManager::ActivationGuard;
using ContextManagerTest = Tests::GLTest<>;

/// A column per pixel, from `first` on.
std::unique_ptr<GlImage> texture(double first) {
  return std::make_unique<GlImage>(
      *Tests::imageOf(ImageDescriptor(PixelFloat, 64, 32), [=](int x, int, int, int) { return first + x; }));
}

double lastValue(const GlImage& image) {
  return image.download()->valueAsDouble(63, 31, 0, 0);
}

TEST_F(ContextManagerTest, ThreadsHaveContextsOfTheirOwnAndShareTextures) {
  std::latch allInside(4);
  std::vector<std::unique_ptr<GlImage>> images(4);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < images.size(); ++i)
    threads.emplace_back([&, i] {
      const Guard guard;
      allInside.arrive_and_wait();
      EXPECT_TRUE(GL::ContextManager::hasCurrent());
      images[i] = texture(1000.0 * static_cast<double>(i));
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
  {
    const Guard outer;
    for (std::size_t i = 0; i < images.size(); ++i) {
      EXPECT_EQ(lastValue(*images[i]), 1000.0 * static_cast<double>(i) + 63);
      EXPECT_TRUE(GL::ContextManager::hasCurrent()) << "the guard inside has ended";
    }
  }
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
}

TEST_F(ContextManagerTest, PutsBackAContextOfSomebodyElse) {
  // Taken from under a guard, a display that is open.
  EGLDisplay display = EGL_NO_DISPLAY;
  GL::ContextManager::get().runWithOpenGL([&] { display = eglGetCurrentDisplay(); });
  eglBindAPI(EGL_OPENGL_ES_API);
  const EGLint wantedConfig[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT, EGL_NONE};
  EGLConfig config = nullptr;
  EGLint found = 0;
  if (!eglChooseConfig(display, wantedConfig, &config, 1, &found) || found < 1)
    GTEST_SKIP() << "this driver has no OpenGL ES to stand for a foreign context";
  const EGLint version2[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
  const EGLContext foreign = eglCreateContext(display, config, EGL_NO_CONTEXT, version2);
  ASSERT_TRUE(eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, foreign));
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
  EXPECT_EQ(lastValue(*texture(5.0)), 68.0);
  EXPECT_EQ(eglQueryAPI(), static_cast<EGLenum>(EGL_OPENGL_ES_API));
  EXPECT_EQ(eglGetCurrentContext(), foreign);
  eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
  eglDestroyContext(display, foreign);
}

TEST_F(ContextManagerTest, CheckedCallsNameCallErrorFileAndLine) {
  GL::ContextManager::get().runWithOpenGL([] {
    const int line = __LINE__ + 1;
    const auto bad = [] { KELVARIS_GL_CHECKED(glEnable(0xBAD)); };
    EXPECT_EQ(Tests::errorOf<GL::Error>(bad),
              __FILE__ ":" + std::to_string(line) + ": glEnable(0xBAD): GL_INVALID_ENUM");
    glEnable(0xBAD);
  });
  const Guard guard;
  EXPECT_NO_THROW(KELVARIS_GL_CHECKED(glFlush())) << "an error left behind is not the next call's";
}

} // namespace
} // namespace Kelvaris
