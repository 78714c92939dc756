#include "US/UltrasoundSweep.h"

#include "US/GeometryCases.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

TEST(UltrasoundSweep, ItsClonesAreSweepsWithTheGeometry) {
  UltrasoundSweep sweep;
  EXPECT_EQ(dynamic_cast<const UltrasoundSweep&>(*sweep.clone(1)).frameGeometry(), nullptr);
  const auto convex = Tests::convexCase(28.5, 60, 120).geometry;
  sweep.setFrameGeometry(*convex);
  sweep.add(std::make_shared<SharedImage>(ImageDescriptor(PixelUInt8, 2, 3)), 5.0);
  const auto copy = sweep.clone(4);
  const auto* const geometry = dynamic_cast<const UltrasoundSweep&>(*copy).frameGeometry();
  ASSERT_NE(geometry, nullptr);
  EXPECT_NE(geometry, sweep.frameGeometry());
  EXPECT_TRUE(geometry->isApprox(*convex, 0.0, true));
  EXPECT_EQ(copy->size(), 1);
  EXPECT_EQ(copy->modality(), Data::Ultrasound);
}

} // namespace
} // namespace Kelvaris::US
