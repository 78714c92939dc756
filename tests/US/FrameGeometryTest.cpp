#include "US/FrameGeometry.h"

#include "Core/Properties.h"
#include "US/FrameGeometryFactory.h"
#include "US/GeometryCases.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <random>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;

constexpr auto kToPhysical = FrameGeometry::NormalizedToPhysical;
constexpr auto kToNormalized = FrameGeometry::PhysicalToNormalized;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

class FrameGeometryOfEveryKind : public testing::TestWithParam<Tests::GeometryCase> {};

INSTANTIATE_TEST_SUITE_P(Cases, FrameGeometryOfEveryKind, testing::ValuesIn(Tests::geometryCases()),
                         [](const auto& test) { return test.param.geometry->type() + std::to_string(test.index); });

TEST_P(FrameGeometryOfEveryKind, MapsBothWays) {
  const auto& [name, geometry, position] = GetParam();
  std::mt19937 random(3);
  // Beyond the frame too.
  std::uniform_real_distribution<double> across(-0.1, 1.1);
  std::uniform_real_distribution<double> down(0.001, 1.2);
  const double scale = std::max(1.0, geometry->bounds().extent().maxCoeff());
  for (int i = 0; i < 2000; ++i) {
    const Eigen::Vector2d uv(across(random), down(random));
    const Eigen::Vector2d physical = geometry->convertPoint(uv, kToPhysical);
    // The plain formula loses digits to radii of up to 1000 mm.
    ASSERT_LT((physical - position(uv.x(), uv.y())).norm(), 1e-12 * scale + 1e-12) << uv.transpose();
    const Eigen::Vector2d back = geometry->convertPoint(physical, kToNormalized);
    ASSERT_LT((back - uv).norm(), 1e-12) << uv.transpose();
  }
}

TEST_P(FrameGeometryOfEveryKind, BoundsAreTheSmallestBox) {
  const auto& [name, geometry, position] = GetParam();
  Geometry::AlignedBox seen;
  constexpr int n = 1200;
  for (int i = 0; i <= n; ++i)
    for (int j = 0; j <= 40; ++j)
      seen.extend(position(static_cast<double>(i) / n, j / 40.0));
  const Geometry::AlignedBox bounds = geometry->bounds();
  // On a grid an arc's extreme is missed by at most r (opening / n)^2 / 2.
  const double missed = 1e-5 * seen.extent().maxCoeff();
  const Eigen::Array4d beyond = (Eigen::Array4d() << seen.min() - bounds.min(), bounds.max() - seen.max()).finished();
  EXPECT_TRUE((beyond >= -1e-11).all() && (beyond <= missed).all()) << beyond;
}

TEST_P(FrameGeometryOfEveryKind, IsStoredToTheLastBit) {
  const std::shared_ptr<FrameGeometry> geometry = GetParam().geometry;
  Properties stored;
  geometry->configuration(&stored);
  const std::unique_ptr<FrameGeometry> read = readFrameGeometry(stored);
  ASSERT_TRUE(read);
  EXPECT_TRUE(geometry->isApprox(*read, 0.0));

  for (const auto& [key, text] : stored.params()) {
    if (key == "type" || key == "longRadius") continue;
    Properties other = stored;
    // The long radius of a sector is the sum of the short one and the depth.
    const bool movesLongRadius = key == "depth" || key == "shortRadius";
    for (const std::string& changed : {key, std::string(movesLongRadius ? "longRadius" : key)}) {
      double value = 0.0;
      if (stored.param(changed, value)) other.setParam(changed, value + 0.01);
    }
    const std::unique_ptr<FrameGeometry> moved = readFrameGeometry(other);
    ASSERT_TRUE(moved) << key;
    EXPECT_FALSE(geometry->isApprox(*moved, 0.009)) << key;
    EXPECT_TRUE(geometry->isApprox(*moved, 0.011)) << key;
  }
}

TEST(FrameGeometry, FlatSectorsKeepTheirDigits) {
  // A sector of a million millimetres is a linear frame to within w^2 / 8R = 2e-4 mm, and its lines are 20 mm long.
  const auto flat = Tests::sectorCase(19.0 / 1e6 * 180.0 / std::numbers::pi, 1e6, 1e6 + 20, 1).geometry;
  for (const double u : {0.0, 0.3, 0.5, 1.0})
    for (const double v : {0.0, 1e-6, 0.5, 1.0}) {
      const double t = (2 * u - 1) * 19.0 / 1e6;
      const Eigen::Vector2d p = flat->convertPoint({u, v}, kToPhysical);
      const double y = v * 20 * (1 - t * t / 2) - 1e6 * t * t / 2 * (1 - t * t / 12);
      EXPECT_NEAR(p.y(), y, 1e-14) << u << ", " << v;
      EXPECT_NEAR(flat->convertPoint(p, kToNormalized).y(), v, 1e-15) << u << ", " << v;
    }
}

TEST(FrameGeometry, SectorRadiiAndDepthMoveTogether) {
  FrameGeometrySector sector;
  sector.setShortRadius(70);
  sector.setLongRadius(90);
  EXPECT_EQ(sector.depth(), 20);
  sector.setShortRadius(60);
  EXPECT_EQ(sector.longRadius(), 80);
}

TEST(FrameGeometry, WithoutAnAnswerThePointIsNaN) {
  for (const auto& [c, direction, point] : Tests::undefinedPoints())
    EXPECT_TRUE(c.geometry->convertPoint(point, direction).array().isNaN().all()) << c.name << point.transpose();
  EXPECT_TRUE(Tests::convexCase(kInf, 0, 40).geometry->bounds().isEmpty());
  EXPECT_TRUE(Tests::linearCase(kNaN, 0, 40).geometry->bounds().isEmpty());
}

TEST(FrameGeometry, ComparesKindOffsetAndOnRequestImages) {
  const auto convex = Tests::convexCase(30, 60, 40).geometry, undefined = Tests::convexCase(kNaN, 60, 40).geometry;
  EXPECT_FALSE(convex->isApprox(*Tests::steeredCase(30, 60, 0, 40).geometry, 1e9));
  EXPECT_TRUE(undefined->isApprox(*undefined, 0.001));
  EXPECT_FALSE(undefined->isApprox(*convex, 0.001));
  EXPECT_FALSE(convex->isApprox(FrameGeometryConvex(CoordinateSystem::Pixel), 1e9));

  const std::unique_ptr<FrameGeometry> copy = convex->clone();
  copy->setImgDescPrescan(ImageDescriptor(PixelFloat, 16, 512));
  EXPECT_TRUE(convex->isApprox(*copy, 0.0));
  EXPECT_FALSE(convex->isApprox(*copy, 0.0, true));
  EXPECT_TRUE(copy->clone()->isApprox(*copy, 0.0, true));
  copy->setOffset({0, 1, 0});
  EXPECT_FALSE(convex->isApprox(*copy, 0.001));
}

TEST(FrameGeometry, BadStoredDataIsReportedAndChangesNothing) {
  const struct {
    const char *key, *text, *message; // no text: no such key
  } cases[] = {
      {"type", "FrameGeometryConvex", "of type \"FrameGeometryConvex\" can't be read into a FrameGeometrySector"},
      {"depth", nullptr, "needs a number under \"depth\""},
      {"shortRadius", nullptr, "needs a number under \"shortRadius\""},
      {"bottomCurvature", "round", "needs a number under \"bottomCurvature\""},
      {"longRadius", "200", "longRadius less its shortRadius"},
      {"offset", "1 2", "its \"offset\" can't be read"},
      {"coordinateSystem", "7", "Unknown coordinateSystem 7"}};
  const auto sector = Tests::sectorCase(15, 70, 90, 0.5).geometry;
  Properties good;
  Tests::sectorCase(20, 60, 100, 1).geometry->configuration(&good);
  for (const auto& c : cases) {
    Properties bad = good;
    bad.removeParam(c.key);
    if (c.text) bad.setParam(c.key, c.text);
    const std::unique_ptr<FrameGeometry> geometry = sector->clone();
    const ExpectedLog log;
    geometry->configure(&bad);
    EXPECT_TRUE(log.contains(c.message)) << c.key << ": " << testing::PrintToString(log.messages());
    EXPECT_TRUE(geometry->isApprox(*sector, 0.0)) << c.key;
  }

  good.removeParam("bottomCurvature"); // may be missing
  sector->configure(&good);
  EXPECT_TRUE(sector->isApprox(*Tests::sectorCase(20, 60, 100, 1).geometry, 0.0));
}

TEST(FrameGeometry, ConvertsBetweenPixelsAndMillimetres) {
  for (const Tests::GeometryCase& c : Tests::geometryCases()) {
    SCOPED_TRACE(c.name);
    const bool linear = c.geometry->type() == "FrameGeometryLinear";
    const Eigen::Vector2d spacing(linear ? 0.3 : 0.2, 0.2);
    ImageDescriptor descriptor(PixelUInt8, 100, 120);
    descriptor.setSpacing({spacing.x(), spacing.y(), 0.5});
    c.geometry->setImgDesc(descriptor);
    c.geometry->setOffset({3.0, -4.0, 1.0});
    const auto pixels = c.geometry->convertTo(CoordinateSystem::Pixel);
    ASSERT_NE(pixels, nullptr);
    EXPECT_LT((pixels->offset() - Eigen::Vector3d(3.0 / spacing.x(), -20.0, 2.0)).norm(), 1e-12);
    for (const Eigen::Vector2d& uv : {Eigen::Vector2d(0.1, 0.3), Eigen::Vector2d(0.9, 1.0)}) {
      const Eigen::Vector2d expected = c.position(uv.x(), uv.y()).cwiseQuotient(spacing);
      const Eigen::Vector2d point = pixels->convertPoint(uv, FrameGeometry::NormalizedToPhysical);
      EXPECT_LT((point - expected).norm(), 1e-10 * expected.norm());
    }
    EXPECT_TRUE(pixels->convertTo(CoordinateSystem::Image)->isApprox(*c.geometry, 1e-10, true));
    Properties stored;
    pixels->configuration(&stored);
    EXPECT_TRUE(readFrameGeometry(stored)->isApprox(*pixels, 0.0)) << "with offset and coordinate system";
  }
}

TEST(FrameGeometry, PixelsOfNoOrUnequalSizeCannotBeConverted) {
  const auto convex = Tests::convexCase(28.5, 60, 120).geometry;
  ImageDescriptor descriptor(PixelUInt8, 100, 120);
  for (const auto& [height, message] : {std::pair(0.3, "in pixels of 0.2 x 0.3 mm; pixels must be as wide as high"),
                                        {kNaN, "by the spacing 0.2 x nan x 1 of an image of uint8, 100 x 120 x 1"}}) {
    descriptor.setSpacing({0.2, height, 1.0});
    convex->setImgDesc(descriptor);
    const ExpectedLog log;
    EXPECT_EQ(convex->convertTo(CoordinateSystem::Pixel), nullptr);
    EXPECT_TRUE(log.contains(message)) << testing::PrintToString(log.messages());
  }
}

} // namespace
} // namespace Kelvaris::US
