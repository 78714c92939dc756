#include "BothEvaluators.h"

namespace Kelvaris::ImageMath {
namespace {

using NoiseTest = BothEvaluators;
KELVARIS_BOTH_EVALUATORS(NoiseTest);

std::uint32_t hashOf(std::uint32_t x) {
  const std::uint32_t state = x * 747796405u + 2891336453u;
  const std::uint32_t word = ((state >> ((state >> 28) + 4)) ^ state) * 277803737u;
  return word ^ (word >> 22);
}

double unit(std::uint32_t x) {
  return hashOf(x) * 0x1p-32;
}

/// The formula in doubles.
double expectedNoise(NoiseType type, int frame, std::uint32_t index) {
  const std::uint32_t seed = hashOf(static_cast<std::uint32_t>(frame)), even = index & ~1u;
  if (type == NoiseType::Uniform) return std::sqrt(12.0) * (unit(seed + index) - 0.5);
  const double radius = std::sqrt(-2 * std::log(unit(seed + even) + 1e-12)), angle = 2 * M_PI * unit(seed + even + 1);
  return radius * (index % 2 == 0 ? std::cos(angle) : std::sin(angle));
}

std::vector<float> samplesOf(const SharedImage& image) {
  const auto mem = image.mem();
  const float* const first = static_cast<const float*>(mem->data());
  return {first, first + mem->descriptor().elementCount()};
}

TEST_P(NoiseTest, FollowsItsFormula) {
  for (const NoiseType type : {NoiseType::Gaussian, NoiseType::Uniform})
    for (const int channels : {1, 2, 3, 4})
      for (const int frame : {0, -7}) {
        const SharedImage shape(ImageDescriptor(PixelFloat, 301, 67, 3, channels));
        const auto samples = samplesOf(*evaluate<float>(makeNoise(shape, type, 3.0f, 0.5f, frame)));
        const auto count = static_cast<std::uint32_t>(channels), step = count + count % 2;
        double worst = 0;
        for (std::uint32_t i = 0; i < samples.size(); ++i) {
          const double expected = 3 + 0.5 * expectedNoise(type, frame, i / count * step + i % count);
          worst = std::max(worst, std::abs(samples[i] - expected));
        }
        EXPECT_LT(worst, 2e-5) << channels << " channels, frame " << frame; // the angle's rounding, at large radii
      }
}

TEST_P(NoiseTest, HasItsMomentsAndIsIndependent) {
  constexpr int width = 256, height = 256, row = 2 * width; // 1,048,576 values
  const SharedImage shape(ImageDescriptor(PixelFloat, width, height, 8, 2));
  for (const NoiseType type : {NoiseType::Gaussian, NoiseType::Uniform}) {
    const auto now = samplesOf(*evaluate<float>(makeNoise(shape, type, 0.0f, 1.0f, 5))),
               next = samplesOf(*evaluate<float>(makeNoise(shape, type, 0.0f, 1.0f, 6)));
    const double limit = 4.5 / std::sqrt(static_cast<double>(now.size())); // standard deviations of a mean of products
    const auto mean = [&](const auto& value) {
      double sum = 0;
      for (std::size_t i = 0; i < now.size(); ++i)
        sum += value(i);
      return sum / static_cast<double>(now.size());
    };
    const auto at = [&](std::size_t i, std::size_t lag) { return double{now[(i + lag) % now.size()]}; };
    EXPECT_NEAR(mean([&](std::size_t i) { return at(i, 0); }), 0.0, limit);
    EXPECT_NEAR(mean([&](std::size_t i) { return at(i, 0) * at(i, 0); }), 1.0, 2 * limit);
    EXPECT_NEAR(mean([&](std::size_t i) { return std::pow(at(i, 0), 4); }), type == NoiseType::Gaussian ? 3.0 : 1.8,
                10 * limit);
    for (const std::size_t lag : {1, 2, 3, row, row + 2, row * height}) // channel, neighbours, next row and slice
      EXPECT_NEAR(mean([&](std::size_t i) { return at(i, 0) * at(i, lag); }), 0.0, limit) << "lag " << lag;
    EXPECT_NEAR(mean([&](std::size_t i) { return at(i, 0) * next[i]; }), 0.0, limit) << "the next frame";
  }
}

TEST_P(NoiseTest, ClearsAnImageWithoutDeviationAndStoresIntegers) {
  SharedImage image(ImageDescriptor(PixelInt16, 40, 30, 10)); // without pixels so far
  Array<SharedImage, short> target(image);
  target = DeviceStrategyWrapper(makeNoise(image, NoiseType::Gaussian, 0.0f, 0.0f, 1), usesShaders() ? 2 : 0);
  for (std::size_t i = 0; i < image.descriptor().elementCount(); ++i)
    ASSERT_EQ(static_cast<const short*>(image.mem()->data())[i], 0);
  target = DeviceStrategyWrapper(makeNoise(image, NoiseType::Gaussian, -5.0f, 2.0f, 1), usesShaders() ? 2 : 0);
  EXPECT_EQ(image.mem()->valueAsDouble(3, 4, 5, 0),
            std::round(-5 + 2 * expectedNoise(NoiseType::Gaussian, 1, 2 * (3 + 4 * 40 + 5 * 40 * 30))));
}

TEST(Noise, GivesTheSameBitsInMainMemoryAndByShaders) {
  KELVARIS_REQUIRE_GL();
  const GL::ContextManager::ActivationGuard guard;
  for (const NoiseType type : {NoiseType::Gaussian, NoiseType::Uniform})
    for (const int channels : {1, 2, 4})
      for (const int frame : {0, 1, 2, -1, 1000003}) {
        const SharedImage shape(ImageDescriptor(PixelFloat, 509, 211, 2, channels));
        const auto noise = makeNoise(shape, type, 0.1f, 1.7f, frame);
        const auto shaded = noise.evaluateIntoImage<float>(false);
        ASSERT_TRUE(shaded->hasForm(ImageForm::Gl));
        const auto a = samplesOf(*shaded),
                   b = samplesOf(*DeviceStrategyWrapper(noise, 0).evaluateIntoImage<float>(false));
        ASSERT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(float)), 0)
            << channels << " channels, frame " << frame;
      }
}

} // namespace
} // namespace Kelvaris::ImageMath
