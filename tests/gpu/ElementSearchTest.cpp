#include "gpu/Aperture.h"
#include "gpu/BeamformingScenes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace Kelvaris::US::GPU {
namespace {

using Tests::convexElements;
using Tests::linearElements;

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
      {"linear, odd, fine", linearElements(255, 0.11), Model::Line},
      {"linear, tilted", linearElements(64, 0.2, 0.7), Model::Line},
      {"convex", convexElements(128, 0.47, 60), Model::Arc},
      {"convex, tight and wide", convexElements(192, 0.1, 10), Model::Arc},
      {"convex, reversed", reversed, Model::Arc},
      {"one element out of line", irregular, Model::None},
      {"one element out of the plane", raised, Model::None},
      {"too few to be worth it", linearElements(4, 0.3), Model::None},
      {"all in one place", std::vector<float3>(16, float3{1, 0, 0}), Model::None},
  };
}

/// The index that the search gives must be the plain scan's.
class Pixels {
public:
  Pixels(const ArrayCase& array) : m_array(array), m_search(ElementSearch::fit(array.elements)) {}

  void check(float x, float y, int first, int last) {
    const Point<float> p{x, y};
    const auto plain = idealApertureCenter(p, m_array.elements.data(), first, last, ElementSearch{});
    const auto found = idealApertureCenter(p, m_array.elements.data(), first, last, m_search);
    const bool sameDistance =
        plain.distance == found.distance || (std::isnan(plain.distance) && std::isnan(found.distance));
    if (plain.element != found.element || !sameDistance) {
      if (m_failures++ < 5)
        ADD_FAILURE() << m_array.what << ": pixel (" << x << ", " << y << ") among " << first << " ... " << last
                      << ": the scan gives " << plain.element << ", the search " << found.element;
    }
    const ElementWindow window = candidates(m_search, p, first + 1, last);
    m_candidates += std::max(0, window.last - window.begin + 1);
    m_scanned += std::max(0, last - first);
  }
  double share() const { return static_cast<double>(m_candidates) / static_cast<double>(m_scanned); }

private:
  const ArrayCase& m_array;
  ElementSearch m_search;
  int m_failures = 0;
  long m_candidates = 0, m_scanned = 0;
};

TEST(ElementSearch, FitsLinesAndArcsOnly) {
  for (const ArrayCase& array : arrays())
    EXPECT_EQ(ElementSearch::fit(array.elements).model, array.model) << array.what;
  EXPECT_EQ(ElementSearch::fit({}).model, ElementSearch::Model::None);
}

TEST(ElementSearch, GivesTheElementOfThePlainScan) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  for (const ArrayCase& array : arrays()) {
    Pixels pixels(array);
    const auto& e = array.elements;
    const int n = static_cast<int>(e.size());
    std::mt19937 random(11);
    const auto uniform = [&](float low, float high) {
      return std::uniform_real_distribution<float>(low, high)(random);
    };
    const auto index = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    const auto aperture = [&](int i) {
      // The whole array, random parts, short ones, single elements, empty ones.
      const int first = i % 4 == 0 ? 0 : index(0, n - 1);
      const int last = i % 4 == 0   ? n - 1
                       : i % 4 == 1 ? index(first, n - 1)
                       : i % 4 == 2 ? std::min(n - 1, first + index(0, 7))
                                    : first - index(0, 1);
      return std::pair(first, last);
    };
    for (int i = 0; i < 100000; ++i) {
      const auto [first, last] = aperture(i);
      pixels.check(uniform(-40, 40), uniform(-20, 120), first, last);
    }
    // Equidistant from two neighbours or two elements further apart, as far as floats allow, at all depths.
    for (int i = 0; i < 60000; ++i) {
      const int a = index(0, n - 2), b = std::min(n - 1, a + index(1, 3));
      const auto& p = e[static_cast<std::size_t>(a)];
      const auto& q = e[static_cast<std::size_t>(b)];
      const double mx = (p.x + q.x) / 2.0, my = (p.y + q.y) / 2.0, nx = -(static_cast<double>(q.y) - p.y),
                   ny = static_cast<double>(q.x) - p.x;
      const double depth = std::exp(uniform(-9, 9)), norm = std::hypot(nx, ny) + 1e-30;
      const auto [first, last] = aperture(i);
      pixels.check(static_cast<float>(mx + depth * nx / norm), static_cast<float>(my + depth * ny / norm), first, last);
    }
    // On and beside the elements, on the axis, far and very far away, on the other side.
    for (int i = 0; i < 60000; ++i) {
      const auto [first, last] = aperture(i);
      const auto& p = e[static_cast<std::size_t>(index(0, n - 1))];
      const float scale = std::exp(uniform(-30, 30));
      const std::pair<float, float> places[] = {
          {p.x, p.y},
          {std::nextafter(p.x, uniform(-1, 1)), p.y + uniform(-1e-6f, 1e-6f)},
          {0.0f, uniform(-100, 100)},
          {p.x, scale},
          {uniform(-1, 1) * scale, uniform(-1, 1) * scale},
      };
      pixels.check(places[i % 5].first, places[i % 5].second, first, last);
    }
    for (const float x : {0.0f, 1e-38f, nan, inf, -inf, 3e38f, 1e25f})
      for (const float y : {0.0f, 5.0f, nan, inf, 3e38f, 1e-40f})
        pixels.check(x, y, 0, n - 1);
  }
}

TEST(ElementSearch, LooksAtFewElementsInTheImage) {
  for (const ArrayCase& array : arrays()) {
    if (array.model == ElementSearch::Model::None) continue;
    Pixels pixels(array);
    const int n = static_cast<int>(array.elements.size());
    const float halfWidth = 0.5f * std::abs(array.elements.back().x - array.elements.front().x);
    for (int i = 0; i < 2000; ++i)
      pixels.check(halfWidth * (static_cast<float>(i % 50) / 25 - 1), 1 + static_cast<float>(i) / 50, 0, n - 1);
    EXPECT_LT(pixels.share(), 0.1) << array.what;
  }
}

} // namespace
} // namespace Kelvaris::US::GPU
