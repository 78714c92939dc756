#include "Core/Log.h"
#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/Program.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace Kelvaris {
namespace {

// The vendor-neutral EGL library takes its drivers from these folders, and finds none.
const int kNoDrivers = setenv("__EGL_VENDOR_LIBRARY_DIRS", "/nonexistent", 1) +
                       setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent/none.json", 1);

TEST(MissingDriver, IsAClearErrorAndNoCrash) {
  ASSERT_EQ(kNoDrivers, 0);
  GL::ContextManager& manager = GL::ContextManager::get();
  if (manager.isAvailable()) GTEST_SKIP() << "this EGL library doesn't look for drivers in a folder";
  EXPECT_NE(manager.unavailableReason().find("OpenGL isn't available: "), std::string::npos)
      << manager.unavailableReason();
  EXPECT_FALSE(GL::ContextManager::hasCurrent());
  EXPECT_THROW(GL::ContextManager::ActivationGuard(), GL::Error);
  const TypedImage<float> image(2, 2);
  EXPECT_THROW(GlImage{image}, GL::Error);
  EXPECT_THROW(GlImage{image.descriptor()}, GL::Error);
  EXPECT_THROW(GL::memoryBarrier(GL::kAllBarriers), GL::Error);
  EXPECT_THROW(GL::Program::createComputeFromText("empty", "#version 450 core\nvoid main() {}\n"), GL::Error);
}

} // namespace
} // namespace Kelvaris
