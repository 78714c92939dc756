#include "GL/ImageProgram.h"

#include "GL/GlImage.h"
#include "GL/MaskInclude.h"
#include "Lib/IntensityMask.h"
#include "RequireGL.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <limits>

namespace Kelvaris {
namespace {

using GL::ImageProgram;
using Guard = GL::ContextManager::ActivationGuard;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

/// Column + 10 row + 100 slice, plus what the texture holds there.
const char* const kPositionText = R"(#version 450 core
uniform int u_slice;
uniform sampler2DArray u_input;
uniform vec3 u_weights;
layout(location = 0) out vec4 result;
void main() {
  float value = dot(u_weights, vec3(gl_FragCoord.xy - 0.5, float(u_slice)));
  result = vec4(value + texelFetch(u_input, ivec3(gl_FragCoord.xy, u_slice), 0).r);
}
)";

TEST(ImageProgram, ComputesEveryPixelOfEverySliceOrThoseOfABox) {
  KELVARIS_REQUIRE_GL();
  const struct {
    const char* name;
    Geometry::AlignedBox box;
    int left, top, right, bottom; ///< the pixels that are to be computed
  } cases[] = {
      {"all", {}, 0, 0, 5, 4},
      {"whole pixels", {{1, 2}, {3, 4}}, 1, 2, 3, 4},
      {"centres decide", {{1.4, 0.6}, {3.6, 2.4}}, 1, 1, 4, 2},
      {"beyond the image", {{-5, -5}, {50, 1}}, 0, 0, 5, 1},
  };
  const auto filled = [](double value) {
    return GlImage(*Tests::imageOf(ImageDescriptor(PixelFloat, 5, 4, 3), [&](int, int, int, int) { return value; }));
  };
  const Guard guard;
  const auto program = ImageProgram::createFromText("position", kPositionText);
  ASSERT_TRUE(program);
  for (const auto& c : cases) {
    const GlImage texture = filled(0.25), output = filled(-1.0);
    program->enable();
    program->setUniform("u_weights", Eigen::Vector3f(1.0f, 10.0f, 100.0f));
    program->bindTexture("u_input", texture);
    program->compute(output, c.box);
    program->disable();
    const double error = Tests::worstError(*output.download(), [&](int x, int y, int z, int) {
      const bool inside = x >= c.left && x < c.right && y >= c.top && y < c.bottom;
      return inside ? x + 10 * y + 100 * z + 0.25 : -1.0;
    });
    EXPECT_EQ(error, 0.0) << c.name;
  }
}

/// Reads one of two texels by texture coordinates, as `#abstract_include mask optional` and a define tell.
const char* const kSampleText = R"(#version 450 core
uniform sampler2D u_input;
layout(location = 0) out vec4 result;
#abstract_include mask optional
void main() {
  float at = AT;
  vec4 texel = texture(u_input, vec2(at, 0.5));
  result = vec4(texel.r);
#ifdef HAS_MASK
  if (!maskIsValid(texel.rrrr, vec2(at, 0.5)))
    result = vec4(-7.0);
#endif
}
)";

TEST(ImageProgram, SamplesAsToldWithDefinesAndAnOptionalMask) {
  KELVARIS_REQUIRE_GL();
  const auto nanMask = std::make_shared<IntensityMask>(PixelFloat, kNan);
  const auto valueMask = std::make_shared<IntensityMask>(PixelFloat, 3.0);
  const GL::Sampling linear = {.filter = 9729};
  const GL::Sampling border = {.wrap = 33069, .borderColor = Eigen::Vector4f(9, 9, 9, 9)};
  const struct {
    const char* name;
    const char* define;
    GL::Sampling sampling;
    std::shared_ptr<const Mask> mask;
    float right; ///< the second of the two texels; the first is 1
    float expected;
  } cases[] = {
      {"nearest", "#define AT 0.6", {}, nullptr, 3, 3},
      {"linear", "#define AT 0.5", linear, nullptr, 3, 2},
      {"edge", "#define AT 1.5", {}, nullptr, 3, 3},
      {"border", "#define AT 1.5", border, nullptr, 3, 9},
      {"masked value", "#define AT 0.6", {}, valueMask, 3, -7},
      {"another value", "#define AT 0.1", {}, valueMask, 3, 1},
      {"masked NaN", "#define AT 0.6", {}, nanMask, kNan, -7},
      {"number beside a NaN", "#define AT 0.1", {}, nanMask, kNan, 1},
      {"without the mask again", "#define AT 0.6", {}, nullptr, 3, 3},
  };
  const Guard guard;
  const auto program = ImageProgram::createFromText("sample", kSampleText, {}, GL::CompilationMode::Deferred);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TypedImage<float> input(2, 1);
    input[0] = 1;
    input[1] = c.right;
    const GlImage texture(input), output(ImageDescriptor(PixelFloat, 1, 1));
    program->addDefine(c.define);
    program->removeAbstractIncludeDefinition("mask");
    const auto include = c.mask ? GL::maskInclude(c.mask) : nullptr;
    program->enable();
    if (include) {
      ASSERT_TRUE(program->addAbstractIncludeDefinition(*include, "mask"));
      include->setArguments(*program, "mask");
    }
    program->bindTexture("u_input", texture, c.sampling);
    program->compute(output);
    program->disable();
    EXPECT_EQ(output.download()->valueAsDouble(0, 0, 0, 0), c.expected);
  }
}

} // namespace
} // namespace Kelvaris
