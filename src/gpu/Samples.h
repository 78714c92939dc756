#pragma once

#include "gpu/KernelMath.h"

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

/// The value of a real sample in work precision.
template <typename F> struct Real { F re; };

/// The value of a complex (IQ) sample in work precision.
template <typename F> struct Complex { F re, im; };

/// What a sample type stores, and the type that it is computed with.
template <typename T> struct SampleTraits;
template <> struct SampleTraits<short> {
  using Component = short;
  template <typename F> using Work = Real<F>;
};
template <> struct SampleTraits<float> {
  using Component = float;
  template <typename F> using Work = Real<F>;
};
template <> struct SampleTraits<short2> {
  using Component = short;
  template <typename F> using Work = Complex<F>;
};
template <> struct SampleTraits<float2> {
  using Component = float;
  template <typename F> using Work = Complex<F>;
};

template <typename T, typename F> using WorkType = typename SampleTraits<T>::template Work<F>;

/// The sample as a work value; integers are not scaled.
KELVARIS_KERNEL Real<float> toWorkType(short v) {
  return {static_cast<float>(v)};
}
KELVARIS_KERNEL Real<float> toWorkType(float v) {
  return {v};
}
KELVARIS_KERNEL Complex<float> toWorkType(short2 v) {
  return {static_cast<float>(v.x), static_cast<float>(v.y)};
}
KELVARIS_KERNEL Complex<float> toWorkType(float2 v) {
  return {v.x, v.y};
}

/// Both components set to v.
template <typename W, typename F> KELVARIS_KERNEL W splat(F v) {
  if constexpr (sizeof(W) == sizeof(F))
    return {v};
  else
    return {v, v};
}

/// No component is NaN.
template <typename F> KELVARIS_KERNEL auto isValid(Real<F> v) {
  return !isNan(v.re);
}
template <typename F> KELVARIS_KERNEL auto isValid(Complex<F> v) {
  return !isNan(v.re) && !isNan(v.im);
}

template <typename F> KELVARIS_KERNEL Real<F> select(MaskOf<F> condition, Real<F> yes, Real<F> no) {
  return {select(condition, yes.re, no.re)};
}
template <typename F> KELVARIS_KERNEL Complex<F> select(MaskOf<F> condition, Complex<F> yes, Complex<F> no) {
  return {select(condition, yes.re, no.re), select(condition, yes.im, no.im)};
}

template <typename F> KELVARIS_KERNEL Real<F> operator+(Real<F> a, Real<F> b) {
  return {a.re + b.re};
}
template <typename F> KELVARIS_KERNEL Complex<F> operator+(Complex<F> a, Complex<F> b) {
  return {a.re + b.re, a.im + b.im};
}
template <typename F> KELVARIS_KERNEL Real<F> operator*(Real<F> a, F b) {
  return {a.re * b};
}
template <typename F> KELVARIS_KERNEL Complex<F> operator*(Complex<F> a, F b) {
  return {a.re * b, a.im * b};
}

/// value weight + sum, rounded once per component.
template <typename F> KELVARIS_KERNEL Real<F> multiplyAdd(Real<F> value, F weight, Real<F> sum) {
  return {multiplyAdd(value.re, weight, sum.re)};
}
template <typename F> KELVARIS_KERNEL Complex<F> multiplyAdd(Complex<F> value, F weight, Complex<F> sum) {
  return {multiplyAdd(value.re, weight, sum.re), multiplyAdd(value.im, weight, sum.im)};
}

/// (1 - alpha) lower + alpha upper.
template <typename W, typename F> KELVARIS_KERNEL W interpolate(W lower, W upper, F alpha) {
  return lower * (F(1.0f) - alpha) + upper * alpha;
}

/// value exp(i phase), by the rules of the C99 annex G for complex multiplication: where both parts come out NaN
/// although the value is infinite, the product is the infinity of the direction that remains.
template <typename F> KELVARIS_KERNEL Complex<F> rotate(Complex<F> value, F phase) {
  F s, c;
  sineCosine(phase, s, c);
  Complex<F> product{value.re * c - value.im * s, value.re * s + value.im * c};
  const auto lost = isNan(product.re) && isNan(product.im);
  if (any(lost)) {
    const auto infiniteRe = absolute(value.re) >= F(infinity()), infiniteIm = absolute(value.im) >= F(infinity());
    const F re = copySign(select(infiniteRe, F(1.0f), F(0.0f)), value.re);
    const F im = copySign(select(infiniteIm, F(1.0f), F(0.0f)), value.im);
    // The exponential is never infinite; it is NaN where the phase is not finite.
    c = select(isNan(c), copySign(F(0.0f), c), c);
    s = select(isNan(s), copySign(F(0.0f), s), s);
    const auto recovered = lost && (infiniteRe || infiniteIm);
    product.re = select(recovered, F(infinity()) * (re * c - im * s), product.re);
    product.im = select(recovered, F(infinity()) * (re * s + im * c), product.im);
  }
  return product;
}

/// A result as it is stored: floats as they are; shorts rounded with halves away from zero and clamped to -32767 ...
/// 32767, NaN as -32768.
template <typename Component> KELVARIS_KERNEL Component toComponent(float v) {
  if constexpr (sizeof(Component) == sizeof(float)) {
    return v;
  } else {
    if (isNan(v)) return -32768;
    const float rounded = roundHalfAway(v);
    return static_cast<short>(rounded > 32767.0f ? 32767.0f : rounded < -32767.0f ? -32767.0f : rounded);
  }
}
template <typename T> KELVARIS_KERNEL T toSample(Real<float> v) {
  return toComponent<T>(v.re);
}
template <typename T> KELVARIS_KERNEL T toSample(Complex<float> v) {
  using Component = typename SampleTraits<T>::Component;
  return {toComponent<Component>(v.re), toComponent<Component>(v.im)};
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
