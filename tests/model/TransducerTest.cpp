#include "model/Transducer.h"

#include "Core/Properties.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

using Tests::ExpectedLog;

TEST(Transducer, ElementsOfALinearArrayAreCentred) {
  for (const int n : {0, 2, 3, 128}) {
    const auto elements = Transducer::createLinear(n, 0.3).elementPositions();
    ASSERT_EQ(elements.size(), static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i)
      EXPECT_LT((elements[static_cast<std::size_t>(i)] - Eigen::Vector3d(0.3 * (i - (n - 1) / 2.0), 0, 0)).norm(),
                1e-13);
  }
}

TEST(Transducer, ElementsOfAConvexArrayLieOnTheArcAPitchApart) {
  const double radius = 60.0, pitch = 0.47;
  for (const int n : {3, 192}) {
    const auto elements = Transducer::createConvex(n, pitch, radius).elementPositions();
    const Eigen::Vector3d centre(0.0, -radius, 0.0);
    for (std::size_t i = 0; i < elements.size(); ++i) {
      EXPECT_NEAR((elements[i] - centre).norm(), radius, 1e-12);
      EXPECT_NEAR(elements[i].x(), -elements[elements.size() - 1 - i].x(), 1e-12);
      if (i == 0) continue;
      const Eigen::Vector3d a = elements[i - 1] - centre, b = elements[i] - centre;
      EXPECT_NEAR(std::atan2(b.x() * a.y() - b.y() * a.x(), a.dot(b)) * radius, pitch, 1e-10);
    }
    EXPECT_LT(elements.front().y(), 0.0);
  }
  EXPECT_EQ(Transducer::createConvex(3, pitch, radius).elementPositions()[1], Eigen::Vector3d::Zero());
}

TEST(Transducer, EqualityToleratesRoundingOnly) {
  const Transducer linear = Transducer::createLinear(64, 0.3), convex = Transducer::createConvex(64, 0.3, 50.0);
  const struct {
    Transducer a, b;
    bool equal;
  } cases[] = {{linear, Transducer::createLinear(64, 0.3 + 1e-13), true},
               {Transducer::createLinear(4, 0.0), Transducer::createLinear(4, 1e-12), false}, // not below it
               {linear, Transducer::createLinear(65, 0.3), false},
               {linear, convex, false},
               {convex, linear, false},
               {convex, Transducer::createConvex(64, 0.3, 50.0 + 1e-13), true},
               {convex, Transducer::createConvex(64, 0.3, 50.1), false}};
  for (const auto& c : cases)
    EXPECT_EQ(c.a == c.b, c.equal);
}

TEST(Transducer, StoresAndReadsBack) {
  for (const Transducer& original :
       {Transducer::createLinear(128, 0.1 + 0.2), Transducer::createConvex(2, 0.5, 1 / 3.0)}) {
    Properties stored;
    original.configuration(&stored);
    EXPECT_EQ(stored.hasParam("radiusCurvature"), original.isConvex());
    Transducer read;
    read.configure(&stored);
    EXPECT_EQ(read, original);
    stored.setParam("type", "convex");
    stored.removeParam("radiusCurvature");
    read.configure(&stored);
    EXPECT_EQ(read.radiusCurvature(), 0.0);
    EXPECT_TRUE(read.elementPositions()[0].hasNaN());
  }
}

TEST(Transducer, BadPropertiesAreLoggedAndChangeNothing) {
  const std::string incomplete = "4 Transducer: Incomplete properties during configure";
  const struct {
    const char *type, *number, *pitch, *radius;
    std::string message;
  } cases[] = {
      {"linear", "64", nullptr, nullptr, incomplete},
      {"round", "1", "0.3", nullptr,
       "4 Transducer: Number of elements 1 is too low, at least 2 elements are required."},
      {"linear", "2147483647", "0.3", nullptr,
       "4 Transducer: Number of elements 2147483647 is too high, at most 16384 elements are supported."},
      {"round", "64", "0.3", nullptr, "4 Transducer: Unknown transducer type round during configure"},
      {"convex", "64", "0.3", "?", "\"radiusCurvature\""},
  };
  for (const auto& c : cases) {
    Properties stored;
    stored.setParam("type", c.type);
    stored.setParam("numberElements", c.number);
    if (c.pitch) stored.setParam("pitch", c.pitch);
    if (c.radius) stored.setParam("radiusCurvature", c.radius);
    Transducer transducer = Transducer::createConvex(7, 0.2, 30.0);
    const ExpectedLog log;
    transducer.configure(&stored);
    EXPECT_EQ(log.messages().size(), 1u);
    EXPECT_TRUE(log.contains(c.message)) << c.message;
    EXPECT_EQ(transducer, Transducer::createConvex(7, 0.2, 30.0));
  }
}

} // namespace
} // namespace Kelvaris::US
