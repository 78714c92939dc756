#include "model/BeamformingRois.h"

#include "Core/Properties.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

namespace Kelvaris::US {
namespace {

using Geometry::Polygon2D;

const Polygon2D kLine(std::vector<Eigen::Vector2d>{{0.1, 0.0}, {0.1 + 0.2, 40.0}});
const Polygon2D kArea(std::vector<Eigen::Vector2d>{{-10, 0}, {-10, 40}, {10, 40}, {10, 0}});

BeamformingRois roisOf(std::initializer_list<Polygon2D> polygons) {
  BeamformingRois rois;
  for (const Polygon2D& polygon : polygons)
    rois.add(polygon);
  return rois;
}

TEST(BeamformingRois, RefusesIndicesOutOfRange) {
  const BeamformingRois none, two = roisOf({kLine, kArea});
  for (const auto& [rois, index] : {std::pair(&none, 0), std::pair(&none, -1), std::pair(&two, 2)})
    EXPECT_EQ(Tests::errorOf<std::invalid_argument>([&] { rois->roi(index); }), "Index out of range");
  EXPECT_TRUE(two.roi(1).isEquivalent(kArea));
  EXPECT_NE(two, roisOf({kArea, kLine}));
  EXPECT_NE(two, roisOf({kLine}));
}

TEST(BeamformingRois, StoresAndReadsBack) {
  const BeamformingRois original = roisOf({kArea, kLine, Polygon2D()});
  Properties stored;
  roisOf({kLine, kLine, kLine, kLine}).configuration(&stored);
  original.configuration(&stored);
  BeamformingRois read = roisOf({kLine});
  read.configure(&stored);
  EXPECT_EQ(read, original);

  const Properties empty;
  read.configure(&empty);
  read.configure(nullptr);
  EXPECT_EQ(read, original);

  stored.addSubProperties("rois").setParam("points", "0 0; 1");
  const Tests::ExpectedLog log;
  EXPECT_THROW(read.configure(&stored), std::runtime_error);
  EXPECT_EQ(read, original);
}

} // namespace
} // namespace Kelvaris::US
