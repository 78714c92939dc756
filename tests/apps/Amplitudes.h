#pragma once

#include "Lib/KelvarisFile.h"

#include <algorithm>
#include <cmath>

namespace Kelvaris::Tests {

/// The amplitudes of a decibel picture of 8-bit levels: 0 is invalid, 1 to 255 span the range.
struct Amplitudes {
  int width, height;
  double frameWidth, frameDepth, depthAtTop; // mm
  std::vector<double> values;

  /// A scan-converted picture tells its size by itself.
  Amplitudes(const std::filesystem::path& file, double dynamicRange, double w = 0.0, double d = 0.0, double top = 0.0)
      : frameWidth(w), frameDepth(d), depthAtTop(top) {
    const auto image = KelvarisFile::load(file)->get(0).mem();
    width = image->width();
    height = image->height();
    if (w == 0.0) {
      frameWidth = width * image->descriptor().spacing().x();
      frameDepth = height * image->descriptor().spacing().y();
    }
    for (int j = 0; j < height; ++j)
      for (int i = 0; i < width; ++i) {
        const double level = image->valueAsDouble(i, j, 0, 0);
        values.push_back(level == 0.0 ? 0.0 : std::pow(10.0, ((level - 1.0) / 254.0 - 1.0) * dynamicRange / 20.0));
      }
  }

  double x(double i) const { return ((i + 0.5) / width - 0.5) * frameWidth; }
  double z(double j) const { return depthAtTop + (j + 0.5) / height * frameDepth; }
  double at(int i, int j) const {
    return values[static_cast<std::size_t>(j) * static_cast<std::size_t>(width) + static_cast<std::size_t>(i)];
  }

  /// Between the four pixels around a place.
  double interpolated(double placeX, double placeZ) const {
    const double column = std::clamp((placeX / frameWidth + 0.5) * width - 0.5, 0.0, width - 1.001);
    const double row = std::clamp((placeZ - depthAtTop) / frameDepth * height - 0.5, 0.0, height - 1.001);
    const int i = static_cast<int>(column), j = static_cast<int>(row);
    return std::lerp(std::lerp(at(i, j), at(i + 1, j), column - i),
                     std::lerp(at(i, j + 1), at(i + 1, j + 1), column - i), row - j);
  }

  /// Column and row of the brightest pixel in a box, not on the picture's edge.
  std::pair<int, int> brightest(double x0, double x1, double z0, double z1) const {
    std::pair best(-1, -1);
    for (int j = 1; j + 1 < height; ++j)
      for (int i = 1; i + 1 < width; ++i)
        if (x(i) >= x0 && x(i) <= x1 && z(j) >= z0 && z(j) <= z1 &&
            (best.first < 0 || at(i, j) > at(best.first, best.second)))
          best = {i, j};
    return best;
  }

  struct Peak {
    double x, z, lateral, axial, value; // mm; full widths at half the value
  };

  /// The largest value in a box, refined by parabolas through its neighbours.
  Peak peak(double x0, double x1, double z0, double z1) const {
    const auto [pi, pj] = brightest(x0, x1, z0, z1);
    const auto vertex = [](double before, double top, double after) {
      return 0.5 * (before - after) / (before - 2.0 * top + after);
    };
    const auto half = [&, pi = pi, pj = pj](int di, int dj) {
      const double level = 0.5 * at(pi, pj);
      int n = 0;
      while (at(pi + (n + 1) * di, pj + (n + 1) * dj) >= level)
        ++n;
      const double inner = at(pi + n * di, pj + n * dj), outer = at(pi + (n + 1) * di, pj + (n + 1) * dj);
      return n + (inner - level) / (inner - outer);
    };
    return {x(pi + vertex(at(pi - 1, pj), at(pi, pj), at(pi + 1, pj))),
            z(pj + vertex(at(pi, pj - 1), at(pi, pj), at(pi, pj + 1))), (half(-1, 0) + half(1, 0)) * frameWidth / width,
            (half(0, -1) + half(0, 1)) * frameDepth / height, at(pi, pj)};
  }
};

} // namespace Kelvaris::Tests
