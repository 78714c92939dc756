#include "imaging/ScanConversionCases.h"

#include "GL/ContextManager.h"
#include "US/GeometryCases.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace Kelvaris::US {
namespace {

using namespace Tests;

// The vendor-neutral EGL library takes its drivers from these folders, and finds none.
const int kNoDrivers = setenv("__EGL_VENDOR_LIBRARY_DIRS", "/nonexistent", 1) +
                       setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent/none.json", 1);

TEST_F(ScanConversion, WithoutOpenGLFailsWithTheReason) {
  ASSERT_EQ(kNoDrivers, 0);
  if (GL::ContextManager::get().isAvailable()) GTEST_SKIP() << "this EGL library doesn't look for drivers in a folder";
  const std::string reason =
      "4 ScanConversionUltrafastImaging: Scan conversion failed: " + GL::ContextManager::get().unavailableReason();
  SharedImageSet set;
  set.setModality(Data::Ultrasound);
  set.components() = componentsOf(*linearCase(30, 0, 40).geometry);
  set.add(share(filled(prescanDescriptor(PixelUInt8, 4, 5, 40), [](int, int, int, int) { return 1; })));
  Algorithm* created = nullptr;
  ASSERT_TRUE(ScanConversionUltrafastImaging::createCompatible({&set}, &created));
  const std::unique_ptr<Algorithm> algorithm(created);
  const Kelvaris::Tests::ExpectedLog log;
  algorithm->compute();
  EXPECT_EQ(algorithm->status(), Algorithm::Failure);
  EXPECT_TRUE(algorithm->takeOutput().empty());
  const auto [image, components] = convert(set.get(0), geometryOf(set.components()));
  EXPECT_EQ(image, nullptr);
  EXPECT_TRUE(components.empty());
  EXPECT_EQ(log.messages(), (std::vector<std::string>{reason, reason}));
}

} // namespace
} // namespace Kelvaris::US
