#pragma once

#include "gpu/KernelMath.h"

#include <span>

namespace Kelvaris::US::GPU {

/// A description of where an array's elements lie, from which the kernel finds the nearest element of a pixel by
/// looking at a few candidates instead of all. Made on the host by `fit`; a default one says nothing and makes the
/// kernel look at every element.
///
/// The search is exact: it gives the index that a scan of all elements with the kernel's rounded distances gives, ties
/// to the lower index included. It scans, in ascending order, a window [q - w, q + w] of indices around a guess q, and
/// no element outside that window can have a rounded distance as small as the smallest. The argument, with u = 2^-24,
/// D_i the true distance of pixel p to element i, d_i its float value, h the spacing of the elements:
///
/// 1. d_i = D_i (1 + e), |e| <= 4u: a difference of coordinates has the relative error u, its square 3u, the sum of
///    three squares 5u, the root 3.5u. (What squares lose by underflow is far below `deviation`.)
/// 2. So if d_i is the smallest float distance, then D_i <= (1 + 8.1u) D_j for every j.
/// 3. The elements lie within `deviation` of the places that the model gives them. With m_i the distance from p to
///    place i: m_i <= m_j + E with E = 8.1u m_j + 2.1 deviation, so m_i^2 - m_j^2 <= 2 m_j E + E^2.
/// 4. Since sqrt(4.2 m deviation) <= m / 1024 + 1076 deviation: sqrt(2 m_j E + E^2) <= m_j / 500 + 1090 deviation.
///    Let B = m_j / 480 + 1110 deviation, a little more.
/// 5. Line: m_i^2 = h^2 (i - a)^2 + b^2, with a the foot of p's perpendicular in units of h. Let j be the whole and q
///    the real number nearest to a in the range of indices: (i - a)^2 - (j - a)^2 <= B^2 / h^2. If a lies in the
///    range, q = a and |j - a| <= 1/2, so |i - q| <= 1/2 + B / h. Else q = j is the end of the range and the left
///    side is |i - j| (|i - j| + 2 |j - a|), so |i - q| <= B / h.
/// 6. Arc of radius R about C, p at the distance r from C, x_i the angle at C between p and place i:
///    m_i^2 = (R - r)^2 + 4 R r sin^2(x_i / 2), so sin^2(x_i / 2) - sin^2(x_j / 2) <= y^2 with y^2 = B^2 / (4 R r).
///    Let y <= 1/4 and h / R <= 1/10. If p's angle lies in the range, |x_j| <= h / 2R, and
///    |x_i| <= 2 asin(|x_j| / 2 + y) <= 1.05 (h / 2R + 2y). Else the left side is sin((x_i + x_j) / 2)
///    sin((x_i - x_j) / 2), at least sin^2((x_i - x_j) / 2) as long as (x_i + x_j) / 2 is at most a quarter turn,
///    which it is if p's angle is within a quarter turn of the middle of the range. Both give
///    |i - q| <= 0.53 + 2.1 y R / h.
/// 7. The rounding of q and w themselves is a few u of |p|, for which B has 4 % to spare, and of the index, for which
///    the constant terms have 0.02; the arctangent is good to 1e-4 radians, of which w takes account.
///
/// Where a condition fails, the window is the whole range.
struct ElementSearch {
  enum class Model : int { None, Line, Arc };
  Model model = Model::None;
  CUDA::float2 origin{};    ///< Line: place 0. Arc: centre of the circle. mm
  CUDA::float2 direction{}; ///< Line: unit vector along the array. Arc: unit vector from the centre to the arc's middle
  float spacing = 0;        ///< Line: mm. Arc: radians, negative where the index falls with the angle
  float first = 0;          ///< Arc: angle of place 0 from `direction`, radians
  float radius = 0;         ///< Arc: mm
  float deviation = 0;      ///< largest distance of an element from its place, mm

  /// The model that fits the positions (mm): a line or an arc of equal spacing in the plane z = 0, else None.
  static ElementSearch fit(std::span<const CUDA::float3> positions);
};

inline namespace KELVARIS_ARCH {

/// Angle of (x, y) from the y axis towards x, in radians, to within 1e-4, for y > 0.
template <typename F> KELVARIS_KERNEL F arcTangent(F x, F y) {
  const F ax = absolute(x);
  const auto steep = ax > y;
  const F t = select(steep, y, ax) / select(steep, ax, y);
  const F z = t * t;
  // Abramowitz & Stegun 4.4.47: |error| <= 1e-5 on [0, 1].
  const F a =
      t * (F(0.9998660f) + z * (F(-0.3302995f) + z * (F(0.1801410f) + z * (F(-0.0851330f) + z * F(0.0208351f)))));
  return copySign(select(steep, F(1.5707963f) - a, a), x);
}

/// Integer indices of the candidates for the nearest element.
struct ElementWindow {
  int begin, last;
};

/// The candidates among the elements begin ... last for all pixels of p.
template <typename F>
KELVARIS_KERNEL ElementWindow candidates(const ElementSearch& search, Point<F> p, int begin, int last) {
  if (search.model == ElementSearch::Model::None || last - begin < 4) return {begin, last};
  const F lowestIndex = static_cast<float>(begin), highestIndex = static_cast<float>(last);
  const F dx = p.x - F(search.origin.x), dy = p.y - F(search.origin.y);
  const F tx = search.direction.x, ty = search.direction.y;
  F guess, halfWidth;
  auto covered = dx <= dx; // becomes false where the argument does not hold
  if (search.model == ElementSearch::Model::Line) {
    guess = (dx * tx + dy * ty) / F(search.spacing);
    guess = select(guess > lowestIndex, guess, lowestIndex);
    guess = select(guess < highestIndex, guess, highestIndex);
    const F along = guess * F(search.spacing);
    const F rx = dx - along * tx, ry = dy - along * ty;
    // m_j is at most half a spacing more than the distance to the guess.
    const F m = squareRoot(rx * rx + ry * ry) + F(search.spacing);
    halfWidth = F(0.53f) + (m * F(1.0f / 480.0f) + F(1110.0f * search.deviation)) / F(search.spacing);
  } else {
    const F across = dx * ty - dy * tx, forward = dx * tx + dy * ty;
    const F r = squareRoot(dx * dx + dy * dy);
    const F angle = arcTangent(across, forward);
    guess = (angle - F(search.first)) / F(search.spacing);
    guess = select(guess > lowestIndex, guess, lowestIndex);
    guess = select(guess < highestIndex, guess, highestIndex);
    // m_j is at most |R - r| plus the way along the larger circle from p to place j.
    const F place = F(search.first) + guess * F(search.spacing);
    const F larger = select(r > F(search.radius), r, F(search.radius));
    const F m = absolute(F(search.radius) - r) + larger * (absolute(angle - place) + F(fabsf(search.spacing)));
    const F b = m * F(1.0f / 480.0f) + F(1110.0f * search.deviation);
    const F y = b / (F(2.0f) * squareRoot(F(search.radius) * r));
    const float middle = search.first + 0.5f * static_cast<float>(begin + last) * search.spacing;
    halfWidth = F(0.55f) + (F(2.1f) * y + F(2e-4f)) / F(fabsf(search.spacing));
    covered = covered && forward > F(0.0f) && absolute(angle - F(middle)) <= F(1.57f) && y <= F(0.25f);
  }
  // A NaN position is nearest to no element: it needs no candidates, and takes none from the others.
  const auto nothing = isNan(p.x) || isNan(p.y);
  covered = covered && guess <= guess && halfWidth <= F(1e6f);
  const F from = select(covered, truncate(guess - halfWidth), lowestIndex);
  const F to = select(covered, truncate(guess + halfWidth) + F(1.0f), highestIndex);
  const float lower = lowest(select(nothing, highestIndex + F(1.0f), from));
  const float upper = highest(select(nothing, lowestIndex - F(1.0f), to));
  const float lowerEnd = static_cast<float>(begin), upperEnd = static_cast<float>(last);
  return {lower > lowerEnd ? static_cast<int>(lower) : begin, upper < upperEnd ? static_cast<int>(upper) : last};
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
