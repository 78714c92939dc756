#pragma once

#include "gpu/KernelMath.h"

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

// Windows over a receive aperture of N elements, as functions of the element's place i = 0 ... N - 1. Both are periodic
// in N rather than symmetric in N - 1 (F. J. Harris, "On the use of windows for harmonic analysis with the discrete
// Fourier transform", Proc. IEEE 66, 1978), so the last element's weight is not the first one's.

/// w = 1.
template <typename F> struct Unweighted {
  KELVARIS_KERNEL explicit Unweighted(F /*size*/) {}
  KELVARIS_KERNEL F operator()(F /*i*/) const { return F(1.0f); }
};

/// w = 0.54 - 0.46 cos(2 pi i / N).
template <typename F> struct Hamming {
  F inverseSize;

  KELVARIS_KERNEL explicit Hamming(F size) : inverseSize(F(1.0f) / size) {}
  KELVARIS_KERNEL F operator()(F i) const {
    constexpr float twoPi = 0x1.921fb6p+2f;
    return F(0.54f) + F(-0.46f) * cosine(F(twoPi) * i * inverseSize);
  }
};

/// Cosine tapers over a quarter of the aperture at each end (taper ratio 0.5), flat between: with L = N / 4,
/// w = (1 - cos(pi i / L)) / 2 for i < L, (1 - cos(pi (N - i) / L)) / 2 for i > N - L, else 1.
template <typename F> struct Tukey {
  F size, taper;

  KELVARIS_KERNEL explicit Tukey(F size_) : size(size_), taper(size_ * F(0.5f) * F(0.5f)) {}
  KELVARIS_KERNEL F operator()(F i) const {
    constexpr float pi = 0x1.921fb6p+1f;
    const auto rising = i < taper;
    const auto flat = !rising && i <= size - taper;
    if (!any(!flat)) return F(1.0f);
    const F fromEnd = select(rising, i, size - i);
    return select(flat, F(1.0f), (F(1.0f) - cosine(F(pi) * fromEnd / taper)) * F(0.5f));
  }
};

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
