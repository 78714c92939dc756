#include "GL/ContextManager.h"

#include "GL/Check.h"
#include "GL/GlImage.h"
#include "RequireGL.h"

#include <epoxy/egl.h>
#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace Kelvaris {
namespace {

using Guard = GL::ContextManager::ActivationGuard;

std::unique_ptr<TypedImage<float>> rampImage(int width, int height, float first) {
  auto image = std::make_unique<TypedImage<float>>(width, height);
  for (std::size_t i = 0; i < image->size(); ++i)
    (*image)[i] = first + static_cast<float>(i);
  return image;
}

TEST(ContextManager, GuardsNestAndEnd) {
  KELVARIS_REQUIRE_GL();
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
  {
    const Guard outer;
    EXPECT_TRUE(GL::ContextManager::hasCurrent());
    { const Guard inner; }
    EXPECT_TRUE(GL::ContextManager::hasCurrent());
  }
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
}

TEST(ContextManager, EveryThreadHasItsOwnCurrentContext) {
  KELVARIS_REQUIRE_GL();
  constexpr int count = 4;
  std::latch allInside(count);
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i)
    threads.emplace_back([&] {
      const Guard guard;
      allInside.arrive_and_wait();
      EXPECT_TRUE(GL::ContextManager::hasCurrent());
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
}

TEST(ContextManager, TexturesAreSharedBetweenThreads) {
  KELVARIS_REQUIRE_GL();
  constexpr int count = 4;
  std::vector<std::unique_ptr<GlImage>> images(count);
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i)
    threads.emplace_back([&, i] {
      images[static_cast<std::size_t>(i)] = std::make_unique<GlImage>(*rampImage(64, 32, static_cast<float>(1000 * i)));
    });
  for (std::thread& thread : threads)
    thread.join();
  const Guard guard;
  for (int i = 0; i < count; ++i) {
    const auto back = images[static_cast<std::size_t>(i)]->download();
    EXPECT_EQ(back->valueAsDouble(63, 31, 0, 0), 1000 * i + 64 * 32 - 1);
  }
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
  EXPECT_EQ(GlImage(*rampImage(3, 1, 5.0f)).download()->valueAsDouble(2, 0, 0, 0), 7.0);
  EXPECT_EQ(eglQueryAPI(), static_cast<EGLenum>(EGL_OPENGL_ES_API));
  EXPECT_EQ(eglGetCurrentContext(), foreign);
  eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
  eglDestroyContext(display, foreign);
}

TEST(CheckedCall, NamesCallErrorFileAndLine) {
  KELVARIS_REQUIRE_GL();
  const Guard guard;
  int line = 0;
  try {
    line = __LINE__ + 1;
    KELVARIS_GL_CHECKED(glEnable(0xBAD));
    FAIL() << "no error";
  } catch (const GL::Error& error) {
    EXPECT_EQ(error.what(), __FILE__ ":" + std::to_string(line) + ": glEnable(0xBAD): GL_INVALID_ENUM");
  }
}

TEST(ContextManager, AnErrorLeftBehindIsNotTheNextCalls) {
  KELVARIS_REQUIRE_GL();
  {
    const Guard guard;
    glEnable(0xBAD);
  }
  const Guard guard;
  EXPECT_NO_THROW(KELVARIS_GL_CHECKED(glFlush()));
}

} // namespace
} // namespace Kelvaris
