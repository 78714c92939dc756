#pragma once

#include "imagemath/ImageMath.h"

#include "GL/RequireGL.h"
#include "support/Samples.h"

namespace Kelvaris::ImageMath {

inline constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
inline constexpr float kInfinity = std::numeric_limits<float>::infinity();

/// Tests that run once in main memory and once, on a machine with OpenGL, by shaders.
class BothEvaluators : public ::testing::TestWithParam<const char*> {
protected:
  void SetUp() override {
    if (!usesShaders()) return;
    KELVARIS_REQUIRE_GL();
    m_guard.emplace();
  }

  bool usesShaders() const { return GetParam() == std::string("shader"); }

  template <typename T, typename Expr> std::unique_ptr<SharedImage> evaluate(const Expr& expr, bool normalize = false) {
    auto image = DeviceStrategyWrapper(expr, usesShaders() ? 2 : 0).template evaluateIntoImage<T>(normalize);
    EXPECT_EQ(image->hasForm(ImageForm::Gl), usesShaders() && expr.deviceStrategy() != 0);
    return image;
  }

  /// Evaluates into floats and compares with expected(x, y, z, channel): equal to the last bits of a double's result in
  /// main memory, within 1e-5 by a shader. NaN and infinities must be the same.
  template <typename Expr>
  void check(const std::string& what, const Expr& expr, const std::function<double(int, int, int, int)>& expected) {
    const auto pixels = evaluate<float>(expr)->mem();
    const double tolerance = usesShaders() ? 1e-5 : 1e-7;
    int wrong = 0;
    Tests::forEachSample(pixels->descriptor(), [&](int x, int y, int z, int c) {
      const double value = pixels->valueAsDouble(x, y, z, c), wanted = expected(x, y, z, c);
      const bool same = Tests::isSame(value, wanted) || std::abs(value - wanted) <= tolerance * std::abs(wanted);
      if (!same && ++wrong <= 3)
        ADD_FAILURE() << what << " at " << x << ", " << y << ", " << z << ", channel " << c << ": " << value
                      << ", expected " << wanted;
    });
    EXPECT_EQ(wrong, 0) << what;
  }

private:
  std::optional<GL::ContextManager::ActivationGuard> m_guard;
};

#define KELVARIS_BOTH_EVALUATORS(Suite)                                                                                \
  INSTANTIATE_TEST_SUITE_P(Evaluators, Suite, ::testing::Values("memory", "shader"),                                   \
                           [](const auto& evaluator) { return std::string(evaluator.param); })

/// An image with sample(i) at the i-th place in memory.
template <typename T, typename Sample>
std::shared_ptr<TypedImage<T>> imageOf(const ImageDescriptor& descriptor, const Sample& sample) {
  auto image = std::make_shared<TypedImage<T>>(descriptor);
  for (std::size_t i = 0; i < image->size(); ++i)
    (*image)[i] = static_cast<T>(sample(i));
  return image;
}

/// Random floats of both signs and many magnitudes, among them NaN, infinities and zeros. More pixels than a block.
inline std::shared_ptr<TypedImage<float>> randomImage(int channels, unsigned seed = 1) {
  std::mt19937 random(seed);
  const float special[] = {kNan, kInfinity, -kInfinity, 0.0f, -0.0f, 1.0f, 2.5f};
  return imageOf<float>(ImageDescriptor(PixelFloat, 37, 29, 3, channels), [&](std::size_t) {
    if (random() % 8 == 0) return special[random() % std::size(special)];
    return std::ldexp(static_cast<float>(static_cast<int>(random() % 20001) - 10000),
                      static_cast<int>(random() % 30) - 20);
  });
}

} // namespace Kelvaris::ImageMath
