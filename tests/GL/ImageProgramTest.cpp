#include "GL/ImageProgram.h"

#include "GL/GlImage.h"
#include "RequireGL.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace Kelvaris {
namespace {

using GL::ImageProgram;
using Guard = GL::ContextManager::ActivationGuard;

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

/// Reads a texel by texture coordinates.
const char* const kSampleText = R"(#version 450 core
uniform sampler2D u_input;
uniform float u_at;
layout(location = 0) out vec4 result;
void main() { result = texture(u_input, vec2(u_at, 0.5)); }
)";

TEST(ImageProgram, OthersMayBeDeletedUnderAnotherContext) {
  KELVARIS_REQUIRE_GL();
  const std::string text = "#version 450 core\nlayout(location = 0) out vec4 result;\n"
                           "void main() { result = vec4(VALUE); }\n";
  const Guard guard;
  const GlImage output(ImageDescriptor(PixelFloat, 5, 4));
  const auto draw = [&](ImageProgram& program) {
    program.enable();
    program.compute(output);
    program.disable();
    GL::finish();
  };
  auto first = ImageProgram::createFromText("first", text, "#define VALUE 1.0");
  const auto second = ImageProgram::createFromText("second", text, "#define VALUE 2.0");
  ASSERT_TRUE(first && second);
  draw(*first);
  draw(*second);
  std::thread([&] { first.reset(); }).join();
  GL::finish();
  draw(*second);
  EXPECT_EQ(output.download()->valueAsDouble(4, 3, 0, 0), 2.0);
}

TEST(ImageProgram, DrawsWhileOtherThreadsMakeTextures) {
  KELVARIS_REQUIRE_GL();
  const auto image = MemImage::create(ImageDescriptor(PixelFloat, 256, 256, 1));
  std::atomic<int> drawing = 2;
  const auto draw = [&] {
    const Guard guard;
    const auto program = ImageProgram::createFromText("sample", kSampleText);
    for (int i = 0; i < 1000; ++i) {
      const GlImage input(*image), output(ImageDescriptor(PixelFloat, 256, 256, 1 + i % 5));
      program->enable();
      program->setUniform("u_at", 0.5f);
      program->bindTexture("u_input", input);
      program->compute(output);
      program->disable();
      GL::flush();
    }
    --drawing;
  };
  const auto upload = [&] {
    const auto small = MemImage::create(ImageDescriptor(PixelFloat, 64, 64));
    const Guard guard;
    while (drawing > 0)
      const GlImage texture(*small);
  };
  std::thread threads[] = {std::thread(draw), std::thread(draw), std::thread(upload), std::thread(upload)};
  for (std::thread& thread : threads)
    thread.join();
}

TEST(ImageProgram, SamplesAsTold) {
  KELVARIS_REQUIRE_GL();
  const GL::Sampling border = {.wrap = 33069, .borderColor = Eigen::Vector4f(9, 9, 9, 9)};
  const struct {
    const char* name;
    float at;
    GL::Sampling sampling;
    double expected; ///< of the texels 1 and 3
  } cases[] = {{"nearest", 0.6f, {}, 3},
               {"linear", 0.5f, {.filter = 9729}, 2},
               {"edge", 1.5f, {}, 3},
               {"border", 1.5f, border, 9}};
  const Guard guard;
  const auto program = ImageProgram::createFromText("sample", kSampleText);
  TypedImage<float> input(2, 1);
  input[0] = 1;
  input[1] = 3;
  const GlImage texture(input), output(ImageDescriptor(PixelFloat, 1, 1));
  for (const auto& c : cases) {
    program->enable();
    program->setUniform("u_at", c.at);
    program->bindTexture("u_input", texture, c.sampling);
    program->compute(output);
    program->disable();
    EXPECT_EQ(output.download()->valueAsDouble(0, 0, 0, 0), c.expected) << c.name;
  }
}

} // namespace
} // namespace Kelvaris
