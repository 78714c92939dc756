#include "GL/ContextManager.h"
#include "imaging/EnvelopeDetectionAlgorithm.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace Kelvaris::US {
namespace {

// The vendor-neutral EGL library takes its drivers from these folders, and finds none.
const int kNoDrivers = setenv("__EGL_VENDOR_LIBRARY_DIRS", "/nonexistent", 1) +
                       setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent/none.json", 1);

TEST(EnvelopeDetectionWithoutGL, IqImagesWorkAndRealOnesSayWhyNot) {
  ASSERT_EQ(kNoDrivers, 0);
  if (GL::ContextManager::get().isAvailable()) GTEST_SKIP() << "this EGL library doesn't look for drivers in a folder";
  SharedImageSet images;
  images.setModality(Data::Ultrasound);
  auto iq = std::make_shared<TypedImage<float>>(1, 1, 1, 2);
  (*iq)[0] = 3.0f;
  (*iq)[1] = 4.0f;
  images.add(std::make_shared<SharedImage>(iq));
  EnvelopeDetectionAlgorithm algorithm(&images);
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Success);
  EXPECT_EQ(algorithm.takeOutput().extract<SharedImageSet>()->get(0).mem()->valueAsDouble(0, 0, 0, 0), 255.0);

  images.add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(4, 50)));
  const Tests::ExpectedLog log;
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_TRUE(algorithm.takeOutput().empty());
  ASSERT_EQ(log.messages().size(), 2u);
  EXPECT_TRUE(
      log.contains("4 EnvelopeDetectionAlgorithm: Real samples can't be demodulated: OpenGL isn't available: "));
  EXPECT_EQ(log.messages()[1], "4 EnvelopeDetectionAlgorithm: Error while filtering image 1of2");
}

} // namespace
} // namespace Kelvaris::US
