#include "CUDA/CpuVariant.h"
#include "LanesUnderTest.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <bit>
#include <random>

namespace Kelvaris::CUDA {

namespace cpu_v2 {
LanesUnderTest lanesUnderTest();
}
namespace cpu_v3 {
LanesUnderTest lanesUnderTest();
}
namespace cpu_v4 {
LanesUnderTest lanesUnderTest();
}

namespace {

constexpr float inf = std::numeric_limits<float>::infinity();

class Lanes : public ::testing::TestWithParam<CpuVariant> {
protected:
  void SetUp() override {
    if (!isSupported(GetParam())) GTEST_SKIP() << "this processor lacks x86-64-v" << static_cast<int>(GetParam());
    m_lanes = chooseVariant(GetParam(), cpu_v2::lanesUnderTest, cpu_v3::lanesUnderTest, cpu_v4::lanesUnderTest)();
  }
  static std::vector<float> apply(LaneFunction* f, const std::vector<float>& in) {
    std::vector<float> out(in.size());
    f(in.data(), out.data(), in.size());
    return out;
  }
  LanesUnderTest m_lanes{};
};

/// Distance of `value` from the exact result in units of the last place of the exact one.
double errorInUlp(float value, double exact) {
  int exponent;
  std::frexp(exact, &exponent);
  return std::abs(value - exact) / std::ldexp(1.0, std::max(exponent - 24, -149));
}

TEST_P(Lanes, SineAndCosineAreWithinOneUlp) {
  std::mt19937 random(7);
  std::vector<float> angles{0.0f, 1e38f, inf, -inf, std::numeric_limits<float>::quiet_NaN()};
  angles.resize(16);
  // All magnitudes, both signs; beyond 2^14 the C library takes over.
  for (int exponent = -30; exponent <= 30; ++exponent)
    for (int i = 0; i < 4096; ++i)
      angles.push_back((i % 2 ? -1.0f : 1.0f) *
                       std::ldexp(1.0f + static_cast<float>(random() >> 9) * 0x1p-23f, exponent));
  // Where sine or cosine all but vanish: the floats around multiples of pi / 2.
  for (int k = 1; k <= 10000; ++k)
    angles.push_back(static_cast<float>(k * 1.5707963267948966));
  const auto sines = apply(m_lanes.sine, angles), cosines = apply(m_lanes.cosine, angles);
  for (std::size_t i = 0; i < angles.size(); ++i) {
    if (!std::isfinite(angles[i])) {
      EXPECT_TRUE(std::isnan(sines[i]) && std::isnan(cosines[i])) << angles[i];
      continue;
    }
    const auto angle = static_cast<long double>(angles[i]);
    ASSERT_LE(errorInUlp(sines[i], static_cast<double>(std::sin(angle))), 1.0) << angles[i];
    ASSERT_LE(errorInUlp(cosines[i], static_cast<double>(std::cos(angle))), 1.0) << angles[i];
  }
}

TEST_P(Lanes, RoundsLikeTheLibrary) {
  std::vector<float> in{0.0f,  -0.0f,      0.5f,       -0.5f,      0.49999997f, -0.49999997f, 1.5f, 2.5f,
                        -2.5f, 8388607.5f, 8388606.5f, 4194304.5f, 8388609.0f,  -8388607.5f,  inf,  -inf};
  std::mt19937 random(3);
  while (in.size() < 65536) {
    const float v = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    if (!std::isnan(v)) in.push_back(v);
  }
  const auto rounded = apply(m_lanes.roundHalfAway, in), truncated = apply(m_lanes.truncate, in);
  for (std::size_t i = 0; i < in.size(); ++i) {
    ASSERT_EQ(rounded[i], std::round(in[i])) << in[i];
    ASSERT_EQ(truncated[i], std::trunc(in[i])) << in[i];
  }
}

TEST_P(Lanes, MultiplyAddRoundsOnce) {
  constexpr std::size_t n = 4096;
  std::mt19937 random(5);
  std::uniform_real_distribution<float> distribution(-2.0f, 2.0f);
  std::vector<float> in(3 * n);
  for (float& v : in)
    v = distribution(random);
  for (std::size_t i = 0; i < n; ++i)
    in[2 * n + i] = -in[i] * in[n + i]; // what remains is the product's rounding error
  std::vector<float> out(n);
  m_lanes.multiplyAdd(in.data(), out.data(), n);
  for (std::size_t i = 0; i < n; ++i)
    ASSERT_EQ(out[i], std::fma(in[i], in[n + i], in[2 * n + i]));
}

INSTANTIATE_TEST_SUITE_P(CpuVariants, Lanes, ::testing::Values(CpuVariant::V2, CpuVariant::V3, CpuVariant::V4),
                         [](const auto& variant) { return fmt::format("v{}", static_cast<int>(variant.param)); });

} // namespace
} // namespace Kelvaris::CUDA
