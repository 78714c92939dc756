#include "gpu/Aperture.h"
#include "gpu/BeamformingScenes.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

namespace Kelvaris::US::GPU {
namespace {

using Tests::convexElements, Tests::linearElements;

struct ArrayCase {
  const char* what;
  std::vector<float3> elements;
  ElementSearch::Model model;
};

std::vector<ArrayCase> arrays() {
  std::vector<float3> irregular = linearElements(64, 0.3), raised = irregular, reversed = convexElements(96, 0.4, 45);
  irregular[20].x += 0.05f;
  raised[10].z = 0.5f;
  std::reverse(reversed.begin(), reversed.end());
  using Model = ElementSearch::Model;
  return {
      {"linear", linearElements(128, 0.3), Model::Line},
      {"linear, tilted", linearElements(64, 0.2, 0.7), Model::Line},
      {"convex", convexElements(128, 0.47, 60), Model::Arc},
      {"convex, tight", convexElements(192, 0.1, 10), Model::Arc},
      {"convex, reversed", reversed, Model::Arc},
      {"one element out of line", irregular, Model::None},
      {"one element out of the plane", raised, Model::None},
      {"too few to be worth it", linearElements(4, 0.3), Model::None},
      {"all in one place", std::vector<float3>(16, float3{1, 0, 0}), Model::None},
  };
}

TEST(ElementSearch, GivesTheElementOfThePlainScan) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  for (const ArrayCase& array : arrays()) {
    const auto& e = array.elements;
    const int n = static_cast<int>(e.size());
    const ElementSearch search = ElementSearch::fit(e);
    EXPECT_EQ(search.model, array.model) << array.what;
    int failures = 0;
    const auto check = [&](float x, float y, int first, int last) {
      const auto plain = idealApertureCenter(Point<float>{x, y}, e.data(), first, last, ElementSearch{});
      const auto found = idealApertureCenter(Point<float>{x, y}, e.data(), first, last, search);
      if ((plain.element != found.element || !Tests::isSame(plain.distance, found.distance)) && failures++ < 5)
        ADD_FAILURE() << array.what << ": pixel (" << x << ", " << y << ") among " << first << " ... " << last
                      << ": the scan gives " << plain.element << ", the search " << found.element;
    };
    std::mt19937 random(11);
    const auto uniform = [&](float low, float high) {
      return std::uniform_real_distribution<float>(low, high)(random);
    };
    const auto index = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    for (int i = 0; i < 80000; ++i) {
      // The whole array, random parts, short ones, single elements and empty ones.
      const int first = i % 4 == 0 ? 0 : index(0, n - 1);
      const int last = std::min(n - 1, first + (i % 4 == 0   ? n
                                                : i % 4 == 1 ? index(0, n)
                                                : i % 4 == 2 ? index(0, 7)
                                                             : -index(0, 1)));
      check(uniform(-40, 40), uniform(-20, 120), first, last);

      // Equidistant from two neighbours or two elements further apart, as far as floats allow, at all depths.
      const int a = index(0, n - 2), b = std::min(n - 1, a + index(1, 3));
      const auto& p = e[static_cast<std::size_t>(a)];
      const auto& q = e[static_cast<std::size_t>(b)];
      const double dx = static_cast<double>(q.x) - p.x, dy = static_cast<double>(q.y) - p.y;
      const double depth = std::exp(uniform(-9, 9)) / (std::hypot(dx, dy) + 1e-30);
      check(static_cast<float>((p.x + q.x) / 2.0 - depth * dy), static_cast<float>((p.y + q.y) / 2.0 + depth * dx),
            first, last);

      // On and beside the elements, on the axis, far and very far away, on the other side.
      const float scale = std::exp(uniform(-30, 30));
      const std::pair<float, float> places[] = {
          {p.x, p.y},
          {std::nextafter(p.x, uniform(-1, 1)), p.y + uniform(-1e-6f, 1e-6f)},
          {0.0f, uniform(-100, 100)},
          {p.x, scale},
          {uniform(-1, 1) * scale, uniform(-1, 1) * scale},
      };
      check(places[i % 5].first, places[i % 5].second, first, last);
    }
    for (const float x : {0.0f, 1e-38f, nan, inf, -inf, 3e38f, 1e25f})
      for (const float y : {0.0f, 5.0f, nan, inf, 3e38f, 1e-40f})
        check(x, y, 0, n - 1);

    double share = 0.0; // of the elements that the search looks at, in an image as wide as the array
    const float halfWidth = 0.5f * std::abs(e.back().x - e.front().x);
    for (int i = 0; i < 2000; ++i) {
      const Point<float> p{halfWidth * (static_cast<float>(i % 50) / 25 - 1), 1 + static_cast<float>(i) / 50};
      const ElementWindow window = candidates(search, p, 1, n - 1);
      share += std::max(0, window.last - window.begin + 1) / (n - 1.0) / 2000;
    }
    EXPECT_TRUE(array.model == ElementSearch::Model::None || share < 0.1) << array.what << ": " << share;
  }
  EXPECT_EQ(ElementSearch::fit({}).model, ElementSearch::Model::None);
}

} // namespace
} // namespace Kelvaris::US::GPU
