#pragma once

#include "GL/ContextManager.h"

#include <gtest/gtest.h>

/// Skips the running test, with the reason, on a machine without OpenGL.
#define KELVARIS_REQUIRE_GL()                                                                                          \
  if (!::Kelvaris::GL::ContextManager::get().isAvailable())                                                            \
  GTEST_SKIP() << ::Kelvaris::GL::ContextManager::get().unavailableReason()
