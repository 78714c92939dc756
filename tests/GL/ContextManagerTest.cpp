#include "GL/ContextManager.h"

#include "GL/Check.h"
#include "GL/GlImage.h"
#include "RequireGL.h"
#include "support/ErrorOf.h"

#include <epoxy/egl.h>
#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <latch>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace Kelvaris {
namespace {

using Guard = GL::ContextManager::ActivationGuard;

std::unique_ptr<GlImage> texture(float first) {
  TypedImage<float> image(64, 32);
  std::iota(image.pointer(), image.pointer() + image.size(), first);
  return std::make_unique<GlImage>(image);
}

TEST(ContextManager, ThreadsHaveContextsOfTheirOwnAndShareTextures) {
  KELVARIS_REQUIRE_GL();
  constexpr int count = 4;
  std::latch allInside(count);
  std::vector<std::unique_ptr<GlImage>> images(count);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < count; ++i)
    threads.emplace_back([&, i] {
      const Guard guard;
      allInside.arrive_and_wait();
      EXPECT_TRUE(GL::ContextManager::hasCurrent());
      images[i] = texture(1000.0f * static_cast<float>(i));
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
  {
    const Guard outer;
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(images[i]->download()->valueAsDouble(63, 31, 0, 0), 1000.0 * static_cast<double>(i) + 64 * 32 - 1);
      EXPECT_TRUE(GL::ContextManager::hasCurrent()) << "the guard inside has ended";
    }
  }
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
}

TEST(ContextManager, PutsBackAContextOfSomebodyElse) {
  KELVARIS_REQUIRE_GL();
  // Taken from under a guard, a display that is open.
  EGLDisplay display = EGL_NO_DISPLAY;
  {
    const Guard guard;
    display = eglGetCurrentDisplay();
  }
  eglBindAPI(EGL_OPENGL_ES_API);
  const EGLint wantedConfig[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT, EGL_NONE};
  EGLConfig config = nullptr;
  EGLint found = 0;
  if (!eglChooseConfig(display, wantedConfig, &config, 1, &found) || found < 1)
    GTEST_SKIP() << "this driver has no OpenGL ES to stand for a foreign context";
  const EGLint version2[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
  const EGLContext foreign = eglCreateContext(display, config, EGL_NO_CONTEXT, version2);
  ASSERT_NE(foreign, EGL_NO_CONTEXT);
  ASSERT_TRUE(eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, foreign));
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
  EXPECT_EQ(texture(5.0f)->download()->valueAsDouble(2, 0, 0, 0), 7.0);
  EXPECT_EQ(eglQueryAPI(), static_cast<EGLenum>(EGL_OPENGL_ES_API));
  EXPECT_EQ(eglGetCurrentContext(), foreign);
  eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
  eglDestroyContext(display, foreign);
}

TEST(CheckedCall, NamesCallErrorFileAndLine) {
  KELVARIS_REQUIRE_GL();
  {
    const Guard guard;
    const int line = __LINE__ + 1;
    const auto bad = [] { KELVARIS_GL_CHECKED(glEnable(0xBAD)); };
    EXPECT_EQ(Tests::errorOf<GL::Error>(bad),
              __FILE__ ":" + std::to_string(line) + ": glEnable(0xBAD): GL_INVALID_ENUM");
    glEnable(0xBAD);
  }
  const Guard guard;
  EXPECT_NO_THROW(KELVARIS_GL_CHECKED(glFlush())) << "an error left behind is not the next call's";
}

} // namespace
} // namespace Kelvaris
