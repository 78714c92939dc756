#include "imagemath/VectorLog.h"

#include <gtest/gtest.h>

#include <cmath>

namespace Kelvaris::ImageMath {
namespace {

TEST(VectorLogTest, AgreesWithAWiderLogarithm) {
  std::vector<double> values = {1.0, 1e-37, 1.1754944e-37, 10.0, std::nextafter(1.0, 0.0), std::nextafter(1.0, 2.0)};
  for (double x = 1e-45; x < 1e40; x *= 1.0173)
    values.push_back(x);
  values.resize(values.size() / 4 * 4);
  std::vector<double> logarithms = values;
  vectorLog(logarithms.data(), logarithms.size());
  EXPECT_EQ(logarithms[0], 0.0);
  for (std::size_t i = 0; i < values.size(); ++i) {
    const long double exact = std::log(static_cast<long double>(values[i]));
    const long double unit = std::abs(std::nextafter(logarithms[i], 1e9) - logarithms[i]);
    EXPECT_LE(std::abs(static_cast<long double>(logarithms[i]) - exact), 1.0L * unit) << values[i];
  }
}

TEST(VectorLogTest, FollowsTheLogarithmAtItsLimits) {
  const double infinity = std::numeric_limits<double>::infinity();
  double values[] = {0.0, infinity, -1.0, std::nan("")};
  vectorLog(values, 4);
  EXPECT_EQ(values[0], -infinity);
  EXPECT_EQ(values[1], infinity);
  EXPECT_TRUE(std::isnan(values[2]) && std::isnan(values[3]));
}

} // namespace
} // namespace Kelvaris::ImageMath
