#include "BothEvaluators.h"

#include "Lib/IntensityMask.h"

namespace Kelvaris::ImageMath {
namespace {

using Operations = BothEvaluators;
KELVARIS_BOTH_EVALUATORS(Operations);

/// A function of one sample, or of two images' samples at the same place.
using Reference = std::function<double(double a, double b)>;

TEST_P(Operations, AgreeWithPlainLoopsForAllNumbersAndChannels) {
  for (const int channels : usesShaders() ? std::vector{1, 3} : std::vector{1, 2, 3, 4}) { // shaders compile slowly
    const auto first = randomImage(channels, 1), second = randomImage(channels, 2);
    const SharedImage imageA(first), imageB(second);
    const Array<const SharedImage> a(imageA), b(imageB);
    const auto is = [&](const char* what, const auto& expr, const Reference& expected) {
      check(what + std::to_string(channels), expr,
            [&](int x, int y, int z, int c) { return expected(first->value(x, y, z, c), second->value(x, y, z, c)); });
    };
    is("a + b", a + b, [](double p, double q) { return static_cast<float>(p) + static_cast<float>(q); });
    is("3.5f + a", 3.5f + a, [](double p, double) { return 3.5 + p; });
    is("a * b", a * b, [](double p, double q) { return p * q; });
    is("a / 7", a / 7, [](double p, double) { return p / 7; });
    is("2.0 / max(abs(a), 1e-9)", 2.0 / max(abs(a), 1e-9),
       [](double p, double) { return 2 / std::max(std::abs(p), 1e-9); });
    is("max(a, b)", max(a, b), [](double p, double q) { return std::max(p, q); });
    is("min(a, b)", min(a, b), [](double p, double q) { return std::min(p, q); });
    is("a > b", a > b, [](double p, double q) { return p > q ? 1 : 0; });
    is("abs(a)", abs(a), [](double p, double) { return std::abs(p); });
    is("sqrt(a)", sqrt(a), [](double p, double) { return std::sqrt(p); });
    is("log(a)", log(a), [](double p, double) { return std::log(p); });
    is("pow2(a)", pow2(a), [](double p, double) { return p * p; });
    is("clamp", a.clamp(-2.5, 4), [](double p, double) { return std::min(std::max(p, -2.5), 4.0); });
    is("Select", Select(a > b, a, 7), [](double p, double q) { return p > q ? p : 7; });
    is("Stash", Stash(abs(a), [](auto v) { return v / (v + 1) + v; }),
       [](double p, double) { return std::abs(p) / (std::abs(p) + 1) + std::abs(p); });
  }
}

TEST_P(Operations, FoldRepeatAndMixChannels) {
  for (int channels = 1; channels <= 5; ++channels) { // five are for main memory alone
    const auto samples = randomImage(channels, 3), single = randomImage(1, 4);
    const SharedImage many(samples), one(single);
    const Array<const SharedImage> x(many), y(one);
    const auto sumOf = [&](int i, int j, int k, const auto& term) {
      double sum = 0;
      for (int c = 0; c < channels; ++c)
        sum += term(static_cast<double>(samples->value(i, j, k, c)));
      return sum;
    };
    const auto magnitude = [](double value) { return std::abs(value) + 1; };
    check("sum of squares", ChannelReduction<ImgOps::add>(pow2(x)),
          [&](int i, int j, int k, int) { return sumOf(i, j, k, [](double value) { return value * value; }); });
    check(
        "relative to the whole", Stash(abs(x) + 1, [](auto v) { return v / ChannelReduction<ImgOps::add>(v); }),
        [&](int i, int j, int k, int c) { return magnitude(samples->value(i, j, k, c)) / sumOf(i, j, k, magnitude); });
    check("one for many", Select(y > 0, x, y), [&](int i, int j, int k, int c) {
      return single->value(i, j, k) > 0 ? samples->value(i, j, k, c) : single->value(i, j, k);
    });
    check("repeated", BroadcastChannels(y, channels) * x, [&](int i, int j, int k, int c) {
      return static_cast<double>(single->value(i, j, k)) * samples->value(i, j, k, c);
    });
    for (const double invalid : {2.5, static_cast<double>(kNan)}) {
      const auto mask = std::make_shared<IntensityMask>(PixelFloat, invalid);
      check("mask", Select(makeMaskLeaf(x, mask) > 0, 1, 0), [&](int i, int j, int k, int) {
        return sumOf(i, j, k, [&](double value) { return mask->isMasked(value) ? 1 : 0; }) > 0 ? 0 : 1;
      });
    }
  }
}

/// In main memory and, where the types allow it and there is OpenGL, by a shader.
TEST(PixelTypes, AreReadAndStoredThroughScaleAndShift) {
  std::mt19937 random(5);
  std::optional<GL::ContextManager::ActivationGuard> guard;
  if (GL::ContextManager::get().isAvailable()) guard.emplace();
  const auto checkType = [&]<typename T>() {
    const bool small = sizeof(T) <= 2 || std::is_same_v<T, float>;
    const auto kept = [](double value) { return Tests::stored(value, pixelTypeOf<T>()); };
    std::uniform_real_distribution uniform(kept(-30000.0), kept(30000.0));
    for (const auto& [scale, shift] : {std::pair{1.0, 0.0}, {0.25, -1.5}, {3.0, -1.5}})
      for (const int slices : {1, 3}) {
        ImageDescriptor descriptor(pixelTypeOf<T>(), 23, 31, slices);
        descriptor.setScale(scale);
        descriptor.setShift(shift);
        const auto samples = imageOf<T>(descriptor, [&](std::size_t) { return uniform(random); });
        const SharedImage image(samples);
        const Array<const SharedImage> x(image);
        const auto shaded = (x * 1.5 + 2).template evaluateIntoImage<T>(false);
        const auto plain = DeviceStrategyWrapper(x * 1.5 + 2, 0).template evaluateIntoImage<T>(false);
        EXPECT_EQ(shaded->hasForm(ImageForm::Gl), small && guard);
        EXPECT_FALSE(plain->hasForm(ImageForm::Gl));
        EXPECT_EQ(plain->descriptor().scale(), scale);
        const auto expected = [&, scale = scale, shift = shift](int i, int j, int k, int) {
          const double real = (static_cast<double>(samples->value(i, j, k)) / scale - shift) * 1.5 + 2;
          return kept(static_cast<T>(kept((real + shift) * scale)));
        };
        EXPECT_EQ(Tests::worstError(*plain->mem(), expected), 0.0) << descriptor.toString();
        EXPECT_LE(Tests::worstError(*shaded->mem(), expected), std::is_integral_v<T> ? 1.0 : 0.05)
            << descriptor.toString();
      }
  };
  for (const int type :
       {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelUInt32, PixelFloat, PixelDouble})
    dispatchPixelType(type, checkType);
}

TEST_P(Operations, IntegersAreRoundedHalfAwayFromZeroAndHeldWithinTheType) {
  const float values[] = {0.5f,  -0.5f,  1.4999999f, 2.5f,      -2.5f,      0.49999997f, 126.5f,   254.5f,
                          1e20f, -1e20f, kNan,       kInfinity, -kInfinity, -0.4f,       32767.4f, 65535.5f};
  const SharedImage image(imageOf<float>(ImageDescriptor(PixelFloat, static_cast<int>(std::size(values)), 1),
                                         [&](std::size_t i) { return values[i]; }));
  for (const int type : {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelUInt32})
    dispatchPixelType(type, [&]<typename T>() {
      if (usesShaders() && sizeof(T) == 4) return;
      const auto expected = [&](int i, int, int, int) {
        return std::isnan(values[i]) ? 0.0 : Tests::stored(values[i], type);
      };
      EXPECT_EQ(Tests::worstError(*evaluate<T>(Array<const SharedImage>(image))->mem(), expected), 0.0) << type;
    });
}

TEST(Precision, NumbersKeepTheirOwnTypeInMainMemory) {
  const float third = 1.0f / 3;
  const SharedImage image(imageOf<float>(ImageDescriptor(PixelFloat, 1, 1), [&](std::size_t) { return third; }));
  const Array<const SharedImage, float> narrow(image);
  const Array<const SharedImage> wide(image);
  const auto value = [](const auto& expr) {
    return DeviceStrategyWrapper(expr, 0).template evaluateIntoImage<double>(false)->mem()->valueAsDouble(0, 0, 0, 0);
  };
  EXPECT_EQ(value(narrow * 0.1f), static_cast<double>(third * 0.1f)) << "floats alone stay floats";
  EXPECT_EQ(value(narrow * 0.1), static_cast<double>(third) * 0.1) << "a double widens what is above it";
  EXPECT_EQ(value(wide * 0.1f), static_cast<double>(third) * static_cast<double>(0.1f))
      << "a float isn't made a double 0.1";
  EXPECT_EQ(value(narrow / 7), static_cast<double>(third / 7.0f)) << "an integer goes with floats";
  EXPECT_EQ(value(narrow * 0.1f * 0.1), static_cast<double>(third * 0.1f) * 0.1) << "but not what is below";
}

TEST_P(Operations, ATargetMayOccurInItsOwnExpression) {
  const auto before = randomImage(2);
  const auto result = [&](const auto& assign) {
    SharedImage image(before->clone());
    Array<SharedImage, float> target(image);
    assign(image, target);
    EXPECT_EQ(image.hasForm(ImageForm::Gl), usesShaders());
    EXPECT_NE(image.hasForm(ImageForm::Mem), usesShaders());
    return image.mem();
  };
  const int strategy = usesShaders() ? 2 : 0;
  const auto scaled = result([&](const SharedImage&, auto& target) {
    target = DeviceStrategyWrapper(target * 2.0f, strategy);
    target = DeviceStrategyWrapper(target / ChannelReduction<ImgOps::add>(abs(target)), strategy);
  });
  const auto moved = result([&](const SharedImage& image, auto& target) {
    const Array<const SharedImage, float, true> left(image, {1, 0, 0});
    target = DeviceStrategyWrapper(left * 1.0f, strategy);
  });
  Tests::forEachSample(before->descriptor(), [&](int x, int y, int z, int c) {
    const float sum = std::abs(before->value(x, y, z, 0)) * 2 + std::abs(before->value(x, y, z, 1)) * 2;
    const double share = before->value(x, y, z, c) * 2 / sum, value = scaled->valueAsDouble(x, y, z, c);
    EXPECT_TRUE(Tests::isSame(share, value) || std::abs(share - value) <= 1e-6) << share << value;
    const float neighbour = before->value(std::min(x + 1, before->width() - 1), y, z, c);
    EXPECT_TRUE(moved->valueAsDouble(x, y, z, c) == neighbour || std::isnan(neighbour));
  });
}

} // namespace
} // namespace Kelvaris::ImageMath
