#pragma once

#include "GL/ContextManager.h"

#include <gtest/gtest.h>

#include <optional>

/// Skips the running test, with the reason, on a machine without OpenGL.
#define KELVARIS_REQUIRE_GL()                                                                                          \
  if (!::Kelvaris::GL::ContextManager::get().isAvailable())                                                            \
  GTEST_SKIP() << ::Kelvaris::GL::ContextManager::get().unavailableReason()

namespace Kelvaris::Tests {

/// Tests that are skipped on a machine without OpenGL.
template <typename Base = ::testing::Test> class GLTest : public Base {
protected:
  void SetUp() override { KELVARIS_REQUIRE_GL(); }
};

/// The same, with a context on the test's thread.
class ContextTest : public GLTest<> {
protected:
  void SetUp() override {
    GLTest::SetUp();
    if (!IsSkipped()) m_guard.emplace();
  }

private:
  std::optional<GL::ContextManager::ActivationGuard> m_guard;
};

} // namespace Kelvaris::Tests
