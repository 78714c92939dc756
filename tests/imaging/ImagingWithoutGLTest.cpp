#include "imaging/ScanConversionCases.h"

#include "GL/Check.h"
#include "Stream/ImageStream.h"
#include "US/GeometryCases.h"
#include "beamforming/FramePositions.h"
#include "beamforming/SamplingPositionMap.h"
#include "imaging/EnvelopeDetectionAlgorithm.h"
#include "model/BeamformingRois.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"

namespace Kelvaris::US {
namespace {

using namespace Tests;
using Kelvaris::Tests::ExpectedLog;
using Kelvaris::Tests::sameBytes;

class WithoutGL : public ScanConversion {
protected:
  void SetUp() override {
    // The vendor-neutral EGL library takes its drivers from these folders, and finds none.
    setenv("__EGL_VENDOR_LIBRARY_DIRS", "/nonexistent", 1);
    setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent/none.json", 1);
    if (GL::ContextManager::get().isAvailable())
      GTEST_SKIP() << "this EGL library doesn't look for drivers in a folder";
    images.setModality(Data::Ultrasound);
  }
  SharedImageSet images;
};

TEST_F(WithoutGL, ScanConversionFailsWithTheReason) {
  const std::string reason =
      "4 ScanConversionUltrafastImaging: Scan conversion failed: " + GL::ContextManager::get().unavailableReason();
  images.components() = componentsOf(*linearCase(30, 0, 40).geometry);
  images.add(share(imageOf(prescanDescriptor(PixelUInt8, 4, 5, 40), [](int, int, int, int) { return 1; })));
  ScanConversionUltrafastImaging algorithm(&images);
  const ExpectedLog log;
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_TRUE(algorithm.takeOutput().empty());
  EXPECT_EQ(convert(images.get(0), geometryOf(images.components())).first, nullptr);
  EXPECT_EQ(log.messages(), (std::vector<std::string>{reason, reason}));
}

TEST_F(WithoutGL, ImageStreamsDontOpen) {
  ImageStream stream("probe");
  const auto opened = stream.openAsync();
  EXPECT_EQ(Kelvaris::Tests::errorOf<GL::Error>([&] { opened.get(); }), GL::ContextManager::get().unavailableReason());
  EXPECT_EQ(stream.state(), Stream::State::Closed);
}

TEST_F(WithoutGL, EnvelopesOfIqImagesWorkAndThoseOfRealOnesSayWhyNot) {
  images.add(share(imageOf(ImageDescriptor(PixelFloat, 1, 1, 1, 2), [](int, int, int, int c) { return 3 + c; })));
  EnvelopeDetectionAlgorithm algorithm(&images);
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Success);
  EXPECT_EQ(algorithm.takeOutput().extract<SharedImageSet>()->get(0).mem()->valueAsDouble(0, 0, 0, 0), 255.0);

  images.add(share(imageOf(ImageDescriptor(PixelFloat, 4, 50), [](int, int, int, int) { return 0; })));
  const ExpectedLog log;
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_TRUE(
      log.contains("4 EnvelopeDetectionAlgorithm: Real samples can't be demodulated: OpenGL isn't available: "));
}

TEST_F(WithoutGL, PixelsOfRegionsLieWhereTheHostPutsThemWithOneWarning) {
  const std::shared_ptr<FrameGeometry> geometry = linearCase(30, 0, 40).geometry->clone();
  geometry->setImgDescPrescan(ImageDescriptor(PixelFloat, 30, 50));
  const auto everything = std::make_shared<BeamformingRois>();
  everything->add(Geometry::Polygon2D({{-15, 0}, {15, 0}, {15, 40}, {-15, 40}}));
  const ExpectedLog log;
  for (int i = 0; i < 2; ++i)
    EXPECT_TRUE(sameBytes(*SamplingPositionMap(geometry, everything).image->mem(), *framePositionsOnHost(*geometry)));
  ASSERT_EQ(log.messages().size(), 1u);
  EXPECT_TRUE(log.contains("3 BeamformingAlgorithm: The positions of the pixels are computed on the host: OpenGL isn't "
                           "available"));
}

} // namespace
} // namespace Kelvaris::US
