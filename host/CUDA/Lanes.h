#pragma once

#include "CUDA/KernelCode.h"
#include "CUDA/Scalar.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <immintrin.h>
#include <limits>

/// A bundle of floats, one per neighbouring thread of a launch, in one vector register: 16 with AVX-512 (x86-64-v4), 8
/// with AVX2 (v3), 4 with SSE 4.2 (v2). For source files built by `kelvaris_cpu_variants` only.
///
/// Arithmetic is that of float, lane by lane, so a bundle gives every thread the bits that the plain float code would.
/// Conditions are LaneMask; integers that take part in conditions are kept as floats. The operations are those of
/// Scalar.h, and in addition reads from scattered places.
namespace Kelvaris::CUDA {
inline namespace KELVARIS_ARCH {

// The registers and the few instructions that differ between the instruction sets.
namespace native {

#if defined(__AVX512F__)

using Floats = __m512;
using Ints = __m512i;
using Mask = __mmask16;

KELVARIS_KERNEL Floats broadcast(float v) {
  return _mm512_set1_ps(v);
}
KELVARIS_KERNEL Ints broadcast(int v) {
  return _mm512_set1_epi32(v);
}
KELVARIS_KERNEL Mask less(Floats a, Floats b) {
  return _mm512_cmp_ps_mask(a, b, _CMP_LT_OQ);
}
KELVARIS_KERNEL Mask lessEqual(Floats a, Floats b) {
  return _mm512_cmp_ps_mask(a, b, _CMP_LE_OQ);
}
KELVARIS_KERNEL Mask unordered(Floats a, Floats b) {
  return _mm512_cmp_ps_mask(a, b, _CMP_UNORD_Q);
}
KELVARIS_KERNEL Mask both(Mask a, Mask b) {
  return static_cast<Mask>(a & b);
}
KELVARIS_KERNEL Mask either(Mask a, Mask b) {
  return static_cast<Mask>(a | b);
}
KELVARIS_KERNEL Mask invert(Mask a) {
  return static_cast<Mask>(~a);
}
KELVARIS_KERNEL unsigned bits(Mask a) {
  return a;
}
KELVARIS_KERNEL Floats blend(Mask m, Floats yes, Floats no) {
  return _mm512_mask_blend_ps(m, no, yes);
}
KELVARIS_KERNEL Floats squareRoot(Floats v) {
  return _mm512_sqrt_ps(v);
}
KELVARIS_KERNEL Floats multiplyAdd(Floats a, Floats b, Floats c) {
  return _mm512_fmadd_ps(a, b, c);
}
KELVARIS_KERNEL Floats truncate(Floats v) {
  return _mm512_roundscale_ps(v, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
}
KELVARIS_KERNEL Ints toInts(Floats v) {
  return _mm512_cvttps_epi32(v);
}
KELVARIS_KERNEL Floats toFloats(Ints v) {
  return _mm512_cvtepi32_ps(v);
}
KELVARIS_KERNEL Ints loadInts(const short* values) {
  return _mm512_cvtepi16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(values)));
}
KELVARIS_KERNEL Ints asInts(Floats v) {
  return _mm512_castps_si512(v);
}
KELVARIS_KERNEL Floats asFloats(Ints v) {
  return _mm512_castsi512_ps(v);
}
KELVARIS_KERNEL Ints add(Ints a, Ints b) {
  return _mm512_add_epi32(a, b);
}
KELVARIS_KERNEL Ints multiply(Ints a, Ints b) {
  return _mm512_mullo_epi32(a, b);
}
KELVARIS_KERNEL Ints bitAnd(Ints a, Ints b) {
  return _mm512_and_si512(a, b);
}
KELVARIS_KERNEL Ints bitXor(Ints a, Ints b) {
  return _mm512_xor_si512(a, b);
}
template <int n> KELVARIS_KERNEL Ints shiftLeft(Ints v) {
  return _mm512_slli_epi32(v, n);
}
template <int n> KELVARIS_KERNEL Ints shiftRight(Ints v) {
  return _mm512_srai_epi32(v, n);
}
KELVARIS_KERNEL Floats fromBlocks(const __m128 (&b)[4]) {
  const __m256 low = _mm256_insertf128_ps(_mm256_castps128_ps256(b[0]), b[1], 1);
  const __m256 high = _mm256_insertf128_ps(_mm256_castps128_ps256(b[2]), b[3], 1);
  return _mm512_insertf32x8(_mm512_castps256_ps512(low), high, 1);
}
template <int order> KELVARIS_KERNEL Floats shuffle(Floats a, Floats b) {
  return _mm512_shuffle_ps(a, b, order);
}

#elif defined(__AVX2__)

using Floats = __m256;
using Ints = __m256i;
using Mask = __m256;

KELVARIS_KERNEL Floats broadcast(float v) {
  return _mm256_set1_ps(v);
}
KELVARIS_KERNEL Ints broadcast(int v) {
  return _mm256_set1_epi32(v);
}
KELVARIS_KERNEL Mask less(Floats a, Floats b) {
  return _mm256_cmp_ps(a, b, _CMP_LT_OQ);
}
KELVARIS_KERNEL Mask lessEqual(Floats a, Floats b) {
  return _mm256_cmp_ps(a, b, _CMP_LE_OQ);
}
KELVARIS_KERNEL Mask unordered(Floats a, Floats b) {
  return _mm256_cmp_ps(a, b, _CMP_UNORD_Q);
}
KELVARIS_KERNEL Mask both(Mask a, Mask b) {
  return _mm256_and_ps(a, b);
}
KELVARIS_KERNEL Mask either(Mask a, Mask b) {
  return _mm256_or_ps(a, b);
}
KELVARIS_KERNEL Mask invert(Mask a) {
  return _mm256_xor_ps(a, _mm256_castsi256_ps(_mm256_set1_epi32(-1)));
}
KELVARIS_KERNEL unsigned bits(Mask a) {
  return static_cast<unsigned>(_mm256_movemask_ps(a));
}
KELVARIS_KERNEL Floats blend(Mask m, Floats yes, Floats no) {
  return _mm256_blendv_ps(no, yes, m);
}
KELVARIS_KERNEL Floats squareRoot(Floats v) {
  return _mm256_sqrt_ps(v);
}
KELVARIS_KERNEL Floats multiplyAdd(Floats a, Floats b, Floats c) {
  return _mm256_fmadd_ps(a, b, c);
}
KELVARIS_KERNEL Floats truncate(Floats v) {
  return _mm256_round_ps(v, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
}
KELVARIS_KERNEL Ints toInts(Floats v) {
  return _mm256_cvttps_epi32(v);
}
KELVARIS_KERNEL Floats toFloats(Ints v) {
  return _mm256_cvtepi32_ps(v);
}
KELVARIS_KERNEL Ints loadInts(const short* values) {
  return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(values)));
}
KELVARIS_KERNEL Ints asInts(Floats v) {
  return _mm256_castps_si256(v);
}
KELVARIS_KERNEL Floats asFloats(Ints v) {
  return _mm256_castsi256_ps(v);
}
KELVARIS_KERNEL Ints add(Ints a, Ints b) {
  return _mm256_add_epi32(a, b);
}
KELVARIS_KERNEL Ints multiply(Ints a, Ints b) {
  return _mm256_mullo_epi32(a, b);
}
KELVARIS_KERNEL Ints bitAnd(Ints a, Ints b) {
  return _mm256_and_si256(a, b);
}
KELVARIS_KERNEL Ints bitXor(Ints a, Ints b) {
  return _mm256_xor_si256(a, b);
}
template <int n> KELVARIS_KERNEL Ints shiftLeft(Ints v) {
  return _mm256_slli_epi32(v, n);
}
template <int n> KELVARIS_KERNEL Ints shiftRight(Ints v) {
  return _mm256_srai_epi32(v, n);
}
KELVARIS_KERNEL Floats fromBlocks(const __m128 (&b)[2]) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(b[0]), b[1], 1);
}
template <int order> KELVARIS_KERNEL Floats shuffle(Floats a, Floats b) {
  return _mm256_shuffle_ps(a, b, order);
}

#else

using Floats = __m128;
using Ints = __m128i;
using Mask = __m128;

KELVARIS_KERNEL Floats broadcast(float v) {
  return _mm_set1_ps(v);
}
KELVARIS_KERNEL Ints broadcast(int v) {
  return _mm_set1_epi32(v);
}
KELVARIS_KERNEL Mask less(Floats a, Floats b) {
  return _mm_cmplt_ps(a, b);
}
KELVARIS_KERNEL Mask lessEqual(Floats a, Floats b) {
  return _mm_cmple_ps(a, b);
}
KELVARIS_KERNEL Mask unordered(Floats a, Floats b) {
  return _mm_cmpunord_ps(a, b);
}
KELVARIS_KERNEL Mask both(Mask a, Mask b) {
  return _mm_and_ps(a, b);
}
KELVARIS_KERNEL Mask either(Mask a, Mask b) {
  return _mm_or_ps(a, b);
}
KELVARIS_KERNEL Mask invert(Mask a) {
  return _mm_xor_ps(a, _mm_castsi128_ps(_mm_set1_epi32(-1)));
}
KELVARIS_KERNEL unsigned bits(Mask a) {
  return static_cast<unsigned>(_mm_movemask_ps(a));
}
KELVARIS_KERNEL Floats blend(Mask m, Floats yes, Floats no) {
  return _mm_blendv_ps(no, yes, m);
}
KELVARIS_KERNEL Floats squareRoot(Floats v) {
  return _mm_sqrt_ps(v);
}
KELVARIS_KERNEL Floats multiplyAdd(Floats a, Floats b, Floats c) {
  // No instruction for it before AVX2: the library's, which rounds once as well.
  return Floats{__builtin_fmaf(a[0], b[0], c[0]), __builtin_fmaf(a[1], b[1], c[1]), __builtin_fmaf(a[2], b[2], c[2]),
                __builtin_fmaf(a[3], b[3], c[3])};
}
KELVARIS_KERNEL Floats truncate(Floats v) {
  return _mm_round_ps(v, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
}
KELVARIS_KERNEL Ints toInts(Floats v) {
  return _mm_cvttps_epi32(v);
}
KELVARIS_KERNEL Floats toFloats(Ints v) {
  return _mm_cvtepi32_ps(v);
}
KELVARIS_KERNEL Ints loadInts(const short* values) {
  return _mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(values)));
}
KELVARIS_KERNEL Ints asInts(Floats v) {
  return _mm_castps_si128(v);
}
KELVARIS_KERNEL Floats asFloats(Ints v) {
  return _mm_castsi128_ps(v);
}
KELVARIS_KERNEL Ints add(Ints a, Ints b) {
  return _mm_add_epi32(a, b);
}
KELVARIS_KERNEL Ints multiply(Ints a, Ints b) {
  return _mm_mullo_epi32(a, b);
}
KELVARIS_KERNEL Ints bitAnd(Ints a, Ints b) {
  return _mm_and_si128(a, b);
}
KELVARIS_KERNEL Ints bitXor(Ints a, Ints b) {
  return _mm_xor_si128(a, b);
}
template <int n> KELVARIS_KERNEL Ints shiftLeft(Ints v) {
  return _mm_slli_epi32(v, n);
}
template <int n> KELVARIS_KERNEL Ints shiftRight(Ints v) {
  return _mm_srai_epi32(v, n);
}
KELVARIS_KERNEL Floats fromBlocks(const __m128 (&b)[1]) {
  return b[0];
}
template <int order> KELVARIS_KERNEL Floats shuffle(Floats a, Floats b) {
  return _mm_shuffle_ps(a, b, order);
}

#endif

} // namespace native

struct LaneMask {
  native::Mask m;

  friend KELVARIS_KERNEL LaneMask operator&&(LaneMask a, LaneMask b) { return {native::both(a.m, b.m)}; }
  friend KELVARIS_KERNEL LaneMask operator||(LaneMask a, LaneMask b) { return {native::either(a.m, b.m)}; }
  friend KELVARIS_KERNEL LaneMask operator!(LaneMask a) { return {native::invert(a.m)}; }
  friend KELVARIS_KERNEL bool any(LaneMask a) { return native::bits(a.m) != 0; }
  KELVARIS_KERNEL bool lane(int i) const { return (native::bits(m) >> i) & 1u; }
};

struct Lanes {
  native::Floats v;

  static constexpr int count = sizeof(native::Floats) / sizeof(float);

  Lanes() = default;
  KELVARIS_KERNEL Lanes(native::Floats values) : v(values) {}
  KELVARIS_KERNEL Lanes(float value) : v(native::broadcast(value)) {}
  KELVARIS_KERNEL static Lanes load(const float* values) {
    Lanes result;
    std::memcpy(&result.v, values, sizeof result.v);
    return result;
  }
  KELVARIS_KERNEL void store(float* values) const { std::memcpy(values, &v, sizeof v); }

  friend KELVARIS_KERNEL Lanes operator+(Lanes a, Lanes b) { return a.v + b.v; }
  friend KELVARIS_KERNEL Lanes operator-(Lanes a, Lanes b) { return a.v - b.v; }
  friend KELVARIS_KERNEL Lanes operator*(Lanes a, Lanes b) { return a.v * b.v; }
  friend KELVARIS_KERNEL Lanes operator/(Lanes a, Lanes b) { return a.v / b.v; }
  friend KELVARIS_KERNEL LaneMask operator<(Lanes a, Lanes b) { return {native::less(a.v, b.v)}; }
  friend KELVARIS_KERNEL LaneMask operator<=(Lanes a, Lanes b) { return {native::lessEqual(a.v, b.v)}; }
  friend KELVARIS_KERNEL LaneMask operator>(Lanes a, Lanes b) { return b < a; }
  friend KELVARIS_KERNEL LaneMask operator>=(Lanes a, Lanes b) { return b <= a; }
};

template <> struct LaneTraits<Lanes> {
  using Mask = LaneMask;
  static constexpr int count = Lanes::count;
  static constexpr int batch = 8;
  KELVARIS_KERNEL static LaneMask firstThreads(int n) {
    float index[count];
    for (int i = 0; i < count; ++i)
      index[i] = static_cast<float>(i);
    return Lanes::load(index) < Lanes(static_cast<float>(n));
  }
};

KELVARIS_KERNEL Lanes select(LaneMask condition, Lanes yes, Lanes no) {
  return native::blend(condition.m, yes.v, no.v);
}
KELVARIS_KERNEL LaneMask isNan(Lanes a) {
  return {native::unordered(a.v, a.v)};
}
KELVARIS_KERNEL Lanes squareRoot(Lanes a) {
  return native::squareRoot(a.v);
}
KELVARIS_KERNEL Lanes multiplyAdd(Lanes a, Lanes b, Lanes c) {
  return native::multiplyAdd(a.v, b.v, c.v);
}
KELVARIS_KERNEL Lanes truncate(Lanes a) {
  return native::truncate(a.v);
}
KELVARIS_KERNEL Lanes absolute(Lanes a) {
  return native::asFloats(native::bitAnd(native::asInts(a.v), native::broadcast(0x7FFFFFFF)));
}
KELVARIS_KERNEL Lanes copySign(Lanes magnitude, Lanes sign) {
  const native::Ints signBit =
      native::bitAnd(native::asInts(sign.v), native::broadcast(std::numeric_limits<int>::min()));
  return native::asFloats(native::bitXor(native::asInts(absolute(magnitude).v), signBit));
}
/// Nearest integer, halves away from zero. Adding the largest float below one half cannot reach the next integer from
/// below it, and leaves values from 2^23 on, which are integers, as they are.
KELVARIS_KERNEL Lanes roundHalfAway(Lanes a) {
  return truncate(a + copySign(0x1.fffffep-2f, a));
}

KELVARIS_KERNEL float lowest(Lanes a) {
  float values[Lanes::count];
  a.store(values);
  float result = values[0];
  for (int i = 1; i < Lanes::count; ++i)
    result = values[i] < result ? values[i] : result;
  return result;
}
KELVARIS_KERNEL float highest(Lanes a) {
  float values[Lanes::count];
  a.store(values);
  float result = values[0];
  for (int i = 1; i < Lanes::count; ++i)
    result = values[i] > result ? values[i] : result;
  return result;
}

/// Sine and cosine of the angles to within 1 ulp, for any angle; the sine of -0 is 0.
///
/// pi/2 is split into three floats (hi + mid + lo, more than 72 bits). With k the nearest integer to 2 v / pi, the
/// remainder v - k hi is exact as a fused multiply-add: it is below 1 and a multiple of 2^-23 (or, for |v| < 1, k is 0
/// or +-1 and Sterbenz' lemma holds). k mid comes off with its rounding error kept, so that the reduced angle is the
/// unevaluated sum r + tail. The polynomials are minimax on [-pi/4, pi/4]. The largest error over all floats from 2^-12
/// to 2^14 is 0.93 ulp; angles beyond go to the C library.
KELVARIS_KERNEL void sineCosine(Lanes angle, Lanes& sine, Lanes& cosine) {
#if defined(__FMA__)
  constexpr float twoOverPi = 0x1.45f306p-1f;
  constexpr float piHalfHi = 0x1.921fb6p+0f, piHalfMid = -0x1.777a5cp-25f, piHalfLo = -0x1.ee59dap-50f;
  constexpr float magic = 0x1.8p23f; // adding it rounds to an integer, which stands in the low bits
  const Lanes shifted = multiplyAdd(angle, Lanes(twoOverPi), Lanes(magic));
  const Lanes k = shifted - magic;
  const Lanes minusK = Lanes(0.0f) - k;
  const Lanes r1 = multiplyAdd(minusK, Lanes(piHalfHi), angle);
  const Lanes p = k * piHalfMid;
  const Lanes pError = multiplyAdd(minusK, Lanes(piHalfMid), p); // p - k mid
  const Lanes r = r1 - p;
  const Lanes tail = multiplyAdd(minusK, Lanes(piHalfLo), ((r1 - r) - p) + pError);

  const Lanes z = r * r;
  Lanes s = multiplyAdd(z, Lanes(-0x1.994302p-13f), Lanes(0x1.110738p-7f));
  s = multiplyAdd(z, s, Lanes(-0x1.555546p-3f));
  // sin(r + tail) = r + (tail + r z S(z))
  const Lanes sinR = r + multiplyAdd(r * z, s, tail);
  Lanes c = multiplyAdd(z, Lanes(0x1.99ead0p-16f), Lanes(-0x1.6c0c30p-10f));
  c = multiplyAdd(z, c, Lanes(0x1.55554ap-5f));
  // cos(r + tail) = 1 - z/2 + (z^2 C(z) - r tail), with the rounding error of 1 - z/2 added back
  const Lanes half = z * 0.5f;
  const Lanes w = Lanes(1.0f) - half;
  const Lanes cosR = w + (((Lanes(1.0f) - w) - half) + multiplyAdd(z * z, c, Lanes(0.0f) - r * tail));

  const native::Ints quadrant = native::asInts(shifted.v);
  const Lanes oddAsSign =
      native::asFloats(native::bitXor(native::shiftLeft<31>(quadrant), native::asInts(native::broadcast(1.0f))));
  const LaneMask odd = oddAsSign < Lanes(0.0f);
  const native::Ints bit1 = native::broadcast(2);
  const native::Ints sineSign = native::shiftLeft<30>(native::bitAnd(quadrant, bit1));
  const native::Ints cosineSign =
      native::shiftLeft<30>(native::bitAnd(native::add(quadrant, native::broadcast(1)), bit1));
  sine = native::asFloats(native::bitXor(native::asInts(select(odd, cosR, sinR).v), sineSign));
  cosine = native::asFloats(native::bitXor(native::asInts(select(odd, sinR, cosR).v), cosineSign));
  const LaneMask beyond = !(absolute(angle) <= Lanes(16384.0f));
  if (!any(beyond)) [[likely]]
    return;
#else
  const LaneMask beyond = angle <= angle || isNan(angle);
#endif
  float angles[Lanes::count], sines[Lanes::count], cosines[Lanes::count];
  angle.store(angles);
  for (int i = 0; i < Lanes::count; ++i) {
    sines[i] = __builtin_sinf(angles[i]);
    cosines[i] = __builtin_cosf(angles[i]);
  }
#if defined(__FMA__)
  sine = select(beyond, Lanes::load(sines), sine);
  cosine = select(beyond, Lanes::load(cosines), cosine);
#else
  static_cast<void>(beyond);
  sine = Lanes::load(sines);
  cosine = Lanes::load(cosines);
#endif
}

KELVARIS_KERNEL Lanes cosine(Lanes angle) {
  Lanes s, c;
  sineCosine(angle, s, c);
  return c;
}

/// Per lane a place in memory: a base address and a byte offset. Reads take each lane's bytes by a load of its own,
/// which is faster than the processors' gather instructions.
class LaneAddresses {
public:
  /// base + index * stride; the products must fit 32 bits.
  KELVARIS_KERNEL LaneAddresses(const char* base, Lanes index, int stride) : m_base(base) {
    const native::Ints offsets = native::multiply(native::toInts(index.v), native::broadcast(stride));
    std::memcpy(m_offsets, &offsets, sizeof offsets);
    asm("" : "+m"(m_offsets)); // to memory indeed: loading an offset is cheaper than extracting it
  }
  KELVARIS_KERNEL LaneAddresses operator+(std::int64_t bytes) const {
    LaneAddresses result = *this;
    result.m_base += bytes;
    return result;
  }

  /// The four bytes of each lane.
  KELVARIS_KERNEL Lanes read1() const {
    __m128 blocks[Lanes::count / 4];
    for (int i = 0; i < Lanes::count / 4; ++i) {
      __m128 v = _mm_set_ss(at<float>(4 * i));
      v = _mm_insert_ps(v, _mm_set_ss(at<float>(4 * i + 1)), 0x10);
      v = _mm_insert_ps(v, _mm_set_ss(at<float>(4 * i + 2)), 0x20);
      blocks[i] = _mm_insert_ps(v, _mm_set_ss(at<float>(4 * i + 3)), 0x30);
    }
    return native::fromBlocks(blocks);
  }
  /// Eight bytes of each lane: the first four in a, the others in b.
  KELVARIS_KERNEL void read2(Lanes& a, Lanes& b) const {
    __m128 first[Lanes::count / 4], second[Lanes::count / 4];
    for (int i = 0; i < Lanes::count / 4; ++i) {
      first[i] = pair(4 * i);
      second[i] = pair(4 * i + 2);
    }
    const native::Floats lanes01 = native::fromBlocks(first), lanes23 = native::fromBlocks(second);
    a = native::shuffle<_MM_SHUFFLE(2, 0, 2, 0)>(lanes01, lanes23);
    b = native::shuffle<_MM_SHUFFLE(3, 1, 3, 1)>(lanes01, lanes23);
  }
  /// Sixteen bytes of each lane, four in each of a, b, c, d.
  KELVARIS_KERNEL void read4(Lanes& a, Lanes& b, Lanes& c, Lanes& d) const {
    __m128 blocks[4][Lanes::count / 4];
    for (int i = 0; i < Lanes::count / 4; ++i)
      for (int lane = 0; lane < 4; ++lane)
        blocks[lane][i] = at<__m128>(4 * i + lane);
    const native::Floats r0 = native::fromBlocks(blocks[0]), r1 = native::fromBlocks(blocks[1]);
    const native::Floats r2 = native::fromBlocks(blocks[2]), r3 = native::fromBlocks(blocks[3]);
    const native::Floats ab01 = native::shuffle<_MM_SHUFFLE(1, 0, 1, 0)>(r0, r1);
    const native::Floats cd01 = native::shuffle<_MM_SHUFFLE(3, 2, 3, 2)>(r0, r1);
    const native::Floats ab23 = native::shuffle<_MM_SHUFFLE(1, 0, 1, 0)>(r2, r3);
    const native::Floats cd23 = native::shuffle<_MM_SHUFFLE(3, 2, 3, 2)>(r2, r3);
    a = native::shuffle<_MM_SHUFFLE(2, 0, 2, 0)>(ab01, ab23);
    b = native::shuffle<_MM_SHUFFLE(3, 1, 3, 1)>(ab01, ab23);
    c = native::shuffle<_MM_SHUFFLE(2, 0, 2, 0)>(cd01, cd23);
    d = native::shuffle<_MM_SHUFFLE(3, 1, 3, 1)>(cd01, cd23);
  }

private:
  /// The bytes of a lane, which may lie at any address and hold samples of any type.
  template <typename T> KELVARIS_KERNEL T at(int lane) const {
    T value;
    std::memcpy(&value, m_base + m_offsets[lane], sizeof value);
    return value;
  }
  KELVARIS_KERNEL __m128 pair(int lane) const {
    return _mm_castpd_ps(_mm_set_pd(at<double>(lane + 1), at<double>(lane)));
  }

  const char* m_base;
  alignas(64) std::int32_t m_offsets[Lanes::count];
};

/// The low and the high 16 bits of each lane, as signed integers, converted to float.
KELVARIS_KERNEL Lanes lowShorts(Lanes bits) {
  return native::toFloats(native::shiftRight<16>(native::shiftLeft<16>(native::asInts(bits.v))));
}
KELVARIS_KERNEL Lanes highShorts(Lanes bits) {
  return native::toFloats(native::shiftRight<16>(native::asInts(bits.v)));
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::CUDA
