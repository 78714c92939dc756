#include "GL/ImageProgram.h"

#include "GL/Check.h"
#include "GL/GlImage.h"
#include "GL/MaskInclude.h"
#include "Lib/IntensityMask.h"
#include "RequireGL.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace Kelvaris {
namespace {

using GL::ContextManager;
using GL::ImageProgram;
using Guard = ContextManager::ActivationGuard;

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
  struct Case {
    const char* name;
    Geometry::AlignedBox box;
    int left, top, right, bottom; ///< the pixels that are to be computed
  };
  const Case cases[] = {
      {"all", {}, 0, 0, 5, 4},
      {"whole pixels", {{1, 2}, {3, 4}}, 1, 2, 3, 4},
      {"centres decide", {{1.4, 0.6}, {3.6, 2.4}}, 1, 1, 4, 2},
      {"beyond the image", {{-5, -5}, {50, 1}}, 0, 0, 5, 1},
  };
  const Guard guard;
  const auto program = ImageProgram::createFromText("position", kPositionText);
  ASSERT_TRUE(program);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TypedImage<float> input(5, 4, 3);
    std::fill_n(input.pointer(), input.size(), 0.25f);
    TypedImage<float> before(5, 4, 3);
    std::fill_n(before.pointer(), before.size(), -1.0f);
    const GlImage texture(input), output(before);
    program->enable();
    program->setUniform("u_weights", Eigen::Vector3f(1.0f, 10.0f, 100.0f));
    program->bindTexture("u_input", texture);
    program->compute(output, c.box);
    program->disable();
    const auto pixels = output.download();
    for (int z = 0; z < 3; ++z)
      for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x) {
          const bool inside = x >= c.left && x < c.right && y >= c.top && y < c.bottom;
          EXPECT_EQ(pixels->valueAsDouble(x, y, z, 0), inside ? x + 10 * y + 100 * z + 0.25 : -1.0);
        }
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
  struct Case {
    const char* name;
    const char* define;
    GL::Sampling sampling;
    std::shared_ptr<const Mask> mask;
    float right; ///< the second of the two texels; the first is 1
    float expected;
  };
  const Case cases[] = {
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
  for (const Case& c : cases) {
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

TEST(ImageProgram, TellsWhyAFragmentCannotBeCompiled) {
  KELVARIS_REQUIRE_GL();
  const Guard guard;
  const Tests::ExpectedLog log;
  EXPECT_FALSE(ImageProgram::createFromText("broken", "#version 450 core\nvoid main() { noSuchFunction(); }\n"));
  EXPECT_TRUE(log.contains("4 GL.Program: The shader broken can't be compiled"));
  EXPECT_TRUE(log.contains("   2 void main() { noSuchFunction(); }\n")) << "the generated text, with line numbers";
}

} // namespace
} // namespace Kelvaris
