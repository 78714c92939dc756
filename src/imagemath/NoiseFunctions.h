#pragma once

#include <bit>
#include <cstdint>
#include <string>

/// Random numbers, and the elementary functions they need, as one text that is both C++ and GLSL. It uses integer
/// arithmetic and sums, differences and products of floats alone, which both languages round correctly (GLSL where
/// `precise` keeps them apart), so both give the same bits.
///
/// - noiseHash: a PCG hash of 32 bits, one step of a linear congruential generator and an output permutation (O'Neill,
///   PCG: A Family of Simple Fast Space-Efficient Statistically Good Algorithms for Random Number Generation, 2014).
/// - logOfNormal: natural logarithm of a positive normal number, to 1e-7 relative.
/// - rootOf: square root of 0 or a positive normal number, to 3e-7 relative.
/// - cosineOf(x, turns): cosine of x - turns * pi / 2 for x in [0, 2 pi], to 1e-7 absolute.
/// - gaussianNoise, uniformNoise: zero mean and unit variance. The Gaussian one is the transform of Box and Muller,
/// whose
///   two values are those of an even index and of the odd one behind it.
///
/// The polynomials are fits of the least maximal error on the reduced ranges.

namespace Kelvaris::ImageMath::internal {

#define KELVARIS_BOTH_LANGUAGES(...)                                                                                   \
  static std::string glText() {                                                                                        \
    return #__VA_ARGS__ "\n";                                                                                          \
  }                                                                                                                    \
  __VA_ARGS__

struct NoiseFunctions {
  using uint = std::uint32_t;
  static uint floatBitsToUint(float x) { return std::bit_cast<uint>(x); }
  static float uintBitsToFloat(uint bits) { return std::bit_cast<float>(bits); }

// clang-format off
#define precise
KELVARIS_BOTH_LANGUAGES(
uint noiseHash(uint x) {
  uint state = x * 747796405u + 2891336453u;
  uint word = ((state >> ((state >> 28u) + 4u)) ^ state) * 277803737u;
  return (word >> 22u) ^ word;
}
float unitFloat(uint bits) {
  precise float whole = float(bits >> 16u) * 65536.0f + float(bits & 65535u);
  precise float unit = whole * 2.3283064e-10f;
  return unit;
}
float logOfNormal(float x) {
  uint bits = floatBitsToUint(x) + 4913933u;
  int exponent = int(bits >> 23u) - 127;
  precise float f = uintBitsToFloat((bits & 8388607u) + 1060439283u) - 1.0f;
  precise float tail = f * -0.0763443f + 0.1276155f;
  tail = f * tail - 0.13160194f;
  tail = f * tail + 0.14201762f;
  tail = f * tail - 0.16623357f;
  tail = f * tail + 0.20001227f;
  tail = f * tail - 0.25000823f;
  tail = f * tail + 0.3333333f;
  precise float square = f * f;
  precise float low = square * (f * tail) + float(exponent) * 1.4286068e-6f;
  precise float sum = (low - square * 0.5f) + f;
  precise float result = sum + float(exponent) * 0.693145752f;
  return result;
}
float rootOf(float x) {
  precise float inverse = uintBitsToFloat(1597463007u - (floatBitsToUint(x) >> 1u));
  precise float half_ = x * 0.5f;
  inverse = inverse * (1.5f - (half_ * inverse) * inverse);
  inverse = inverse * (1.5f - (half_ * inverse) * inverse);
  inverse = inverse * (1.5f - (half_ * inverse) * inverse);
  precise float root = x * inverse;
  return root;
}
float cosineOf(float x, uint turns) {
  precise float nearest = x * 0.63661975f + 0.5f;
  int quarter = int(nearest);
  precise float reduced = (x - float(quarter) * 1.5703125f) - float(quarter) * 4.838268e-4f;
  precise float square = reduced * reduced;
  precise float cosine = (square * 2.443845e-05f - 0.0013887368f) * square + 0.041666646f;
  cosine = (cosine * square - 0.5f) * square + 1.0f;
  precise float sine = (square * -0.00019517298f + 0.008332178f) * square - 0.16666655f;
  sine = (sine * square) * reduced + reduced;
  uint turn = (uint(quarter) - turns) & 3u;
  float magnitude = (turn & 1u) == 0u ? cosine : sine;
  return turn == 1u || turn == 2u ? -magnitude : magnitude;
}
float gaussianNoise(uint seed, uint index) {
  uint even = index & 4294967294u;
  precise float a = unitFloat(noiseHash(seed + even)) + 1e-12f;
  precise float b = unitFloat(noiseHash(seed + even + 1u)) * 6.2831855f;
  precise float radius = rootOf(logOfNormal(a) * -2.0f);
  precise float value = radius * cosineOf(b, index & 1u);
  return value;
}
float uniformNoise(uint seed, uint index) {
  precise float value = (unitFloat(noiseHash(seed + index)) - 0.5f) * 3.4641016f;
  return value;
}
float scaledNoise(float mean, float deviation, float value) {
  precise float scaled = mean + value * deviation;
  return scaled;
}
)
#undef precise
  // clang-format on
};

#undef KELVARIS_BOTH_LANGUAGES

} // namespace Kelvaris::ImageMath::internal
