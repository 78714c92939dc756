#include "beamforming/SamplingPositionMap.h"

#include "Core/Resource.h"
#include "US/GeometryCases.h"
#include "beamforming/FramePositions.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Samples.h"
#ifdef KELVARIS_HAVE_GL
#include "GL/RequireGL.h"
#endif

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::errorOf, Kelvaris::Tests::ExpectedLog, Kelvaris::Tests::worstError;

/// A frame of 20 mm width and 40 mm depth with a pre-scan image of `width` x `height` shorts.
std::shared_ptr<FrameGeometryLinear> linearFrame(int width, int height) {
  auto geometry = std::make_shared<FrameGeometryLinear>();
  geometry->setWidth(20);
  geometry->setDepth(40);
  ImageDescriptor descriptor(PixelInt16, width, height, 3, 1);
  descriptor.setSpacing({1.0, 40.0 / (height - 1), 1.0});
  geometry->setImgDescPrescan(descriptor);
  return geometry;
}

std::shared_ptr<BeamformingRois> rois(std::initializer_list<std::vector<Eigen::Vector2d>> polygons) {
  auto result = std::make_shared<BeamformingRois>();
  for (const auto& points : polygons)
    result->add(Geometry::Polygon2D(points));
  return result;
}

class SamplingPositionMapTest : public testing::Test {
protected:
  SamplingPositionMapTest() { Resource::addRepository(&m_repository); }

private:
  Repository_KelvarisUSImgFormationPlugin m_repository;
};

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// ---- Positions of the whole frame

/// Compares with the plain formula; the tolerance is in roundings of single precision, relative to the farthest corner
/// of the frame's box.
void expectPositions(const MemImage& positions, const Tests::GeometryCase& c, double roundings) {
  const auto box = c.geometry->bounds();
  const double size = box.min().cwiseAbs().cwiseMax(box.max().cwiseAbs()).norm();
  const int width = positions.width(), height = positions.height();
  const double worst = worstError(positions, [&](int x, int y, int, int channel) {
    return c.position((x + 0.5) / width, (y + 0.5) / height)[channel];
  });
  EXPECT_LE(worst, roundings * size * std::numeric_limits<float>::epsilon()) << c.name;
}

TEST_F(SamplingPositionMapTest, PositionsOfTheFrameFollowTheFormula) {
  for (const Tests::GeometryCase& c : Tests::geometryCases()) {
    const auto geometry = c.geometry->clone();
    geometry->setImgDescPrescan(ImageDescriptor(PixelInt16, 131, 77, 5, 1)); // no multiples of the work group's 8
    const auto onHost = framePositionsOnHost(*geometry);
    EXPECT_EQ(onHost->descriptor().dimensions(), Eigen::Vector3i(131, 77, 1));
    EXPECT_EQ(onHost->channels(), 2);
    expectPositions(*onHost, c, 0.5);
#ifdef KELVARIS_HAVE_GL
    if (!GL::ContextManager::get().isAvailable()) continue;
    const auto withGL = framePositionsWithGL(*geometry);
    EXPECT_TRUE(withGL->descriptor().isApprox(onHost->descriptor())) << c.name;
    expectPositions(*withGL, c, 4);
#endif
  }
}

#ifdef KELVARIS_HAVE_GL
TEST(FramePositionsWithGL, NeedTheirShader) {
  KELVARIS_REQUIRE_GL();
  const ExpectedLog log;
  const std::string message = "Failed to create compute program for sampling position map";
  EXPECT_EQ(errorOf<std::runtime_error>([] { framePositionsWithGL(*linearFrame(4, 4)); }), message);
  EXPECT_TRUE(log.contains("4 BeamformingAlgorithm: " + message));
}
#endif

// ---- Lines

TEST_F(SamplingPositionMapTest, LineRunsFromItsFirstToItsSecondDepth) {
  // Rows of 1 mm: row y lies at y + 0.5 mm. In the last line the first vertex is deeper than the second.
  const auto geometry = linearFrame(64, 40);
  const SamplingPositionMap map(geometry, rois({{{-3, 0}, {-3, 40}}, {{2, 10.2}, {2, 30.7}}, {{5, 30}, {5, 10}}}));
  const auto image = map.image->mem();
  ImageDescriptor expected(PixelFloat, 3, 40, 1, 2);
  expected.setSpacing(geometry->imgDescPrescan().spacing());
  EXPECT_TRUE(image->descriptor().isApprox(expected)) << image->descriptor().toString();
  const auto position = [](int x, int y, int, int channel) {
    const double depth = y + 0.5;
    const bool isValid = x == 0 || (x == 1 && depth > 10.2 && depth < 30.7);
    return !isValid ? nan : channel == 1 ? depth : x == 0 ? -3.0 : 2.0;
  };
  EXPECT_LT(worstError(*image, position), 1e-5);

  const SamplingPositionMap oneRow(linearFrame(4, 1), rois({{{0, 0}, {0, 40}}}));
  EXPECT_EQ(oneRow.image->descriptor().dimensions(), Eigen::Vector3i(1, 1, 1));
  EXPECT_TRUE(std::isnan(oneRow.image->mem()->valueAsDouble(0, 0, 0, 0))) << "the step from row to row is undefined";
}

TEST_F(SamplingPositionMapTest, LineIsStraightInNormalisedCoordinates) {
  for (const Tests::GeometryCase& c : Tests::geometryCases()) {
    const std::shared_ptr<FrameGeometry> geometry = c.geometry->clone();
    geometry->setImgDescPrescan(ImageDescriptor(PixelFloat, 7, 32));
    const Eigen::Vector2d top = c.position(0.3, 0.01);       // some lines all start in one point
    const Eigen::Vector2d elsewhere = c.position(0.6, 0.85); // its depth counts, its place across doesn't
    const auto position = [&](int, int y, int, int channel) {
      const double v = (y + 0.5) / 32;
      return v > 0.85 ? nan : c.position(0.3, v)[channel];
    };
    EXPECT_LT(worstError(*SamplingPositionMap(geometry, rois({{top, elsewhere}})).image->mem(), position),
              1e-6 * std::max({1.0, top.norm(), elsewhere.norm()}))
        << c.name;
  }
}

// ---- Polygons

TEST_F(SamplingPositionMapTest, PolygonsMaskTheFrame) {
  // Pixels of 1 mm: pixel (x, y) lies at (x - 7.5, y + 0.5) mm, exactly, so that edges can be hit.
  const auto geometry = linearFrame(16, 32);
  geometry->setWidth(16);
  geometry->setDepth(32);
  const auto regions = rois({{{-8, 0}, {8, 0}, {8, 32}, {-8, 32}},
                             {{-3.5, 0.5}, {4.5, 0.5}, {-3.5, 16.5}}, // a triangle with pixels on its edges
                             {{-7.5, 0.5}},                           // one vertex: a pixel's centre
                             {{50, 50}, {60, 50}, {60, 60}}});
  const SamplingPositionMap map(geometry, regions);
  const auto image = map.image->mem();
  EXPECT_EQ(image->descriptor().dimensions(), Eigen::Vector3i(16, 32, 4));
  EXPECT_EQ(image->descriptor().spacing(), geometry->imgDescPrescan().spacing());
  const auto position = [](int x, int y, int slice, int channel) {
    const bool isInside[] = {true, x >= 4 && 2 * (x - 4) + y <= 16, x == 0 && y == 0, false};
    return !isInside[slice] ? nan : channel == 0 ? x - 7.5 : y + 0.5;
  };
  EXPECT_EQ(worstError(*image, position), 0.0);
}

// ---- What it refuses

TEST_F(SamplingPositionMapTest, TellsWhatItRefuses) {
  const auto frame = linearFrame(4, 4);
  const std::vector<Eigen::Vector2d> line{{0, 0}, {0, 40}};
  const std::vector<Eigen::Vector2d> triangle{{0, 0}, {5, 40}, {-5, 40}};
  const std::string invalid = "Invalid frame geometry or beamforming ROIs";
  const std::string mixedLog = "BeamformingRois must all be of the same type (all line ROIs or all polygonal ROIs), "
                               "but mixed types were given.";
  const std::string mixed = "BeamformingRois: mixed ROI types (line vs polygon). All ROIs must be either lines (two "
                            "vertices) or polygons.";
  const struct {
    std::shared_ptr<const FrameGeometry> geometry;
    std::shared_ptr<const BeamformingRois> regions;
    std::string logged, thrown;
  } table[] = {{nullptr, rois({line}), invalid, invalid},
               {frame, nullptr, invalid, invalid},
               {frame, rois({}), invalid, invalid},
               {frame, rois({line, triangle}), mixedLog, mixed},
               {frame, rois({{{0, 0}}, line}), mixedLog, mixed}};
  for (const auto& row : table) {
    const ExpectedLog log;
    EXPECT_EQ(errorOf<std::runtime_error>([&] { SamplingPositionMap(row.geometry, row.regions); }), row.thrown);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"4 BeamformingAlgorithm: " + row.logged});
  }
}

} // namespace
} // namespace Kelvaris::US
