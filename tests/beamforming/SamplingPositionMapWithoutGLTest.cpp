#include "GL/ContextManager.h"
#include "beamforming/FramePositions.h"
#include "beamforming/MapCases.h"
#include "beamforming/SamplingPositionMap.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;

// The vendor-neutral EGL library takes its drivers from these folders, and finds none.
const int kNoDrivers = setenv("__EGL_VENDOR_LIBRARY_DIRS", "/nonexistent", 1) +
                       setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent/none.json", 1);

TEST(SamplingPositionMapWithoutGL, ComesFromTheHostWithOneWarning) {
  ASSERT_EQ(kNoDrivers, 0);
  if (GL::ContextManager::get().isAvailable()) GTEST_SKIP() << "this EGL library doesn't look for drivers in a folder";
  const auto geometry = Tests::linearFrame(30, 50);
  const auto everything = Tests::rois({{{-10, 0}, {10, 0}, {10, 40}, {-10, 40}}});
  const ExpectedLog log;
  for (int i = 0; i < 2; ++i) {
    const auto map = SamplingPositionMap(geometry, everything).image->mem();
    const auto expected = framePositionsOnHost(*geometry);
    ASSERT_EQ(map->byteSize(), expected->byteSize());
    EXPECT_EQ(std::memcmp(map->data(), expected->data(), map->byteSize()), 0);
  }
  ASSERT_EQ(log.messages().size(), 1u);
  EXPECT_TRUE(log.contains("3 BeamformingAlgorithm: The positions of the pixels are computed on the host: OpenGL isn't "
                           "available"));
}

} // namespace
} // namespace Kelvaris::US
