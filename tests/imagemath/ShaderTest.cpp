#include "BothEvaluators.h"

#include "Lib/IntensityMask.h"
#include "imagemath/GlEvaluation.h"
#include "imagemath/ProgramCache.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

#include <thread>

namespace Kelvaris::ImageMath {
namespace {

using internal::GlNames;
using internal::ProgramCache;

/// The uniforms of a formula and the text of the formula.
template <typename Expr> std::pair<std::string, std::string> shaderOf(const Expr& expr) {
  const auto gl = expr.glExpr();
  GlNames names;
  gl->tagAndAssignNames("u_", names);
  std::string uniforms;
  gl->getUniformDefinitionList(uniforms);
  return {uniforms, gl->evalString(false)};
}

TEST(ShaderText, IsThatOfTheOperations) {
  const SharedImage one(ImageDescriptor(PixelFloat, 2, 2)), two(ImageDescriptor(PixelFloat, 2, 2, 3, 2));
  const Array<const SharedImage> x(one), iq(two);
  const std::string a = "fetch(u_array0, pixel).r", s = "u_scalarint0";
  const struct {
    std::string text, expected;
  } cases[] = {
      {shaderOf(x + 2).second, "(" + a + ")+(" + s + ")"},
      {shaderOf(x * 2).second, "(" + a + ")*(" + s + ")"},
      {shaderOf(x / 2).second, "(" + a + ")/(" + s + ")"},
      {shaderOf(max(x, 2)).second, "max((" + a + "), (" + s + "))"},
      {shaderOf(min(x, 2)).second, "min((" + a + "), (" + s + "))"},
      {shaderOf(x > 2).second, "greaterThan((" + a + "), (" + s + "))"},
      {shaderOf(abs(x)).second, "abs(" + a + ")"},
      {shaderOf(sqrt(x)).second, "sqrt(" + a + ")"},
      {shaderOf(log(x)).second, "log(" + a + ")"},
      {shaderOf(pow2(x)).second, "(" + a + ")*(" + a + ")"},
      {shaderOf(x.clamp(1, 2)).second, "min((max((" + a + "), (u_scalarint0))), (u_scalarint1))"},
      {shaderOf(ChannelReduction<ImgOps::add>(iq)).second,
       "((fetch(u_array0, pixel).rg).r)+((fetch(u_array0, pixel).rg).g)"},
      {shaderOf(BroadcastChannels(x, 3)).second, "vec3(" + a + ")"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.text, c.expected);
  const char* const variables[] = {"", "varval.r", "varval.rg", "varval.rgb", "varval", ""};
  for (int channels = 0; channels <= 5; ++channels)
    EXPECT_EQ(internal::VariableGl(channels).evalString(false), variables[channels]);
}

TEST(ShaderText, EqualLeavesShareAUniformAndNumbersAreFloats) {
  const SharedImage first(ImageDescriptor(PixelFloat, 2, 2)), second(ImageDescriptor(PixelUInt8, 2, 2, 3));
  const Array<const SharedImage> x(first), again(first), y(second);
  using Mapped = Array<const SharedImage, void, true>;
  const Mapped moved(first, {1, 0, 0});
  Mapped others[] = {Mapped(first, {0, 1, 0}), Mapped(first, {1, 0, 0}, {1, 0, 2}), moved, moved, moved};
  others[2].setRaw(true);
  others[3].setWrap(internal::kClampToBorder);
  others[4].setBorderColor({0, 0, 0, 1});
  EXPECT_EQ(shaderOf((x + 2) * (again + 2)).first, "uniform sampler2D u_array0;\nuniform float u_scalarint0;\n");
  EXPECT_EQ(shaderOf(y * 2 + 2.0f + 2.0 + 3).first, "uniform sampler2DArray u_array0;\nuniform float u_scalarint0;\n"
                                                    "uniform float u_scalarfloat0;\nuniform float u_scalardouble0;\n"
                                                    "uniform float u_scalarint1;\n");
  EXPECT_CONTAINS(shaderOf(x + moved).first, "uniform sampler2D u_array1;\n") << "the same image, read elsewhere";
  for (const Mapped& other : others)
    EXPECT_CONTAINS(shaderOf(moved + other).first, "uniform sampler2D u_array1;\n") << "or otherwise";
}

class Shaders : public Tests::ContextTest {
protected:
  const SharedImage m_image{randomImage(1)};
  const Array<const SharedImage> m_x{m_image};
};

TEST_F(Shaders, AreCompiledOnceAFormula) {
  const auto compilations = [] { return ProgramCache::shared().compilations(); };
  const auto evaluated = [&](float factor) { return (m_x * factor + 1).evaluateIntoImage<float>(false); };
  evaluated(2.5f);
  const std::size_t before = compilations();
  const auto again = evaluated(-3.5f);
  EXPECT_EQ(compilations(), before) << "another constant is no other program";
  const float sample = static_cast<float>(m_image.mem()->valueAsDouble(6, 7, 1, 0));
  EXPECT_FLOAT_EQ(static_cast<float>(again->mem()->valueAsDouble(6, 7, 1, 0)), sample * -3.5f + 1);
  (m_x * 2.5f + 1.0f).evaluateIntoImage<float>(false);
  EXPECT_EQ(compilations(), before + 1);
}

TEST_F(Shaders, TheCacheKeepsThoseUsedLast) {
  ProgramCache cache(2);
  const auto text = [](int i) {
    return "#version 450 core\nlayout(location = 0) out vec4 result;\nvoid main() { result = vec4(" +
           std::to_string(i) + "); }\n";
  };
  for (const int i : {1, 2, 1, 3, 1}) // 3 takes the place of 2
    EXPECT_NE(cache.get(text(i)).get(), nullptr);
  EXPECT_EQ(cache.compilations(), 3u);
  cache.get(text(2));
  EXPECT_EQ(cache.compilations(), 4u);
  {
    const auto one = cache.get(text(2)), other = cache.get(text(2));
    EXPECT_NE(one.get(), other.get()) << "each user has a program for itself";
  }
  const Tests::ExpectedLog log;
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(cache.get("#version 450 core\nvoid main() { nonsense; }\n").get(), nullptr);
  EXPECT_EQ(log.messages().size(), 1u) << "what can't be compiled is tried once";
}

/// A square that doesn't know GLSL.
struct Misspelt {
  template <typename T> static T apply(T a) { return a * a; }
  static std::string evalString(const std::string& a) { return "sqare(" + a + ")"; }
};

TEST_F(Shaders, WhatCannotBeCompiledIsEvaluatedInMainMemory) {
  Tests::ExpectedLog log;
  const auto nine = internal::UnaryOpTpl<Misspelt, Scalar<float>>(Scalar<float>(3));
  const auto image = Select(m_x > 0, nine, nine).evaluateIntoImage<float>(false);
  EXPECT_FALSE(image->hasForm(ImageForm::Gl));
  EXPECT_TRUE(log.contains("The shader of an expression can't be compiled")) << "the driver's messages";
  EXPECT_TRUE(log.contains("sqare(u_scalarfloat0)")) << "and the generated text";
  EXPECT_EQ(Tests::worstError(*image->mem(), [](int, int, int, int) { return 9.0; }), 0.0);
}

TEST_F(Shaders, ImagesBeyondTheLimitsAreEvaluatedInMainMemory) {
  const SharedImage line(
      imageOf<unsigned char>(ImageDescriptor(PixelUInt8, 70000, 1), [](std::size_t i) { return i % 200; }));
  const auto result = (Array<const SharedImage>(line) + 1).evaluateIntoImage<unsigned char>(false);
  EXPECT_FALSE(result->hasForm(ImageForm::Gl)) << "no OpenGL takes 70000 columns";
  EXPECT_EQ(result->mem()->valueAsDouble(69999, 0, 0, 0), 69999 % 200 + 1);
}

TEST_F(Shaders, ThreadsEvaluateTheSameFormulaAtOnce) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([t] {
      const GL::ContextManager::ActivationGuard guard;
      const SharedImage own(imageOf<float>(ImageDescriptor(PixelFloat, 64, 64), [&](std::size_t) { return t; }));
      for (int i = 0; i < 10; ++i) {
        const auto result = (Array<const SharedImage>(own) * i + 1).evaluateIntoImage<float>(false);
        EXPECT_EQ(result->mem()->valueAsDouble(63, 63, 0, 0), t * i + 1);
      }
    });
  for (std::thread& thread : threads)
    thread.join();
}

} // namespace
} // namespace Kelvaris::ImageMath
