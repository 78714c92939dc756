#include "GL/ImageProgram.h"

#include "GL/GlImage.h"
#include "RequireGL.h"
#include "support/Samples.h"

#include <atomic>
#include <thread>

namespace Kelvaris {
namespace {

using GL::ImageProgram;
using ImageProgramTest = Tests::ContextTest;

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

TEST_F(ImageProgramTest, ComputesEveryPixelOfEverySliceOrThoseOfABox) {
  const struct {
    const char* name;
    Geometry::AlignedBox box;
    int left, top, right, bottom; ///< the pixels that are to be computed
  } cases[] = {
      {"whole pixels", {{1, 2}, {3, 4}}, 1, 2, 3, 4},
      {"centres decide", {{1.4, 0.6}, {3.6, 2.4}}, 1, 1, 4, 2},
      {"beyond the image", {{-5, -5}, {50, 1}}, 0, 0, 5, 1},
      {"all", {}, 0, 0, 5, 4},
  };
  const auto filled = [](double value) {
    return GlImage(*Tests::imageOf(ImageDescriptor(PixelFloat, 5, 4, 3), [&](int, int, int, int) { return value; }));
  };
  const auto program = ImageProgram::createFromText("position", kPositionText);
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

void sample(ImageProgram& program, const GlImage& input, float at, const GL::Sampling& sampling,
            const GlImage& output) {
  program.enable();
  program.setUniform("u_at", at);
  program.bindTexture("u_input", input, sampling);
  program.compute(output);
  program.disable();
}

TEST(ImageProgramThreads, DrawWhileOthersMakeTextures) {
  KELVARIS_REQUIRE_GL();
  const auto image = MemImage::create(ImageDescriptor(PixelFloat, 256, 256, 1));
  std::atomic<int> drawing = 2;
  const auto draw = [&] {
    const GL::ContextManager::ActivationGuard guard;
    const auto program = ImageProgram::createFromText("sample", kSampleText);
    for (int i = 0; i < 1000; ++i) {
      const GlImage input(*image), output(ImageDescriptor(PixelFloat, 256, 256, 1 + i % 5));
      sample(*program, input, 0.5f, {}, output);
      GL::flush();
    }
    --drawing;
  };
  const auto upload = [&] {
    const auto small = MemImage::create(ImageDescriptor(PixelFloat, 64, 64));
    const GL::ContextManager::ActivationGuard guard;
    while (drawing > 0)
      const GlImage texture(*small);
  };
  std::thread threads[] = {std::thread(draw), std::thread(draw), std::thread(upload), std::thread(upload)};
  for (std::thread& thread : threads)
    thread.join();
}

TEST_F(ImageProgramTest, SamplesAsTold) {
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
  const auto program = ImageProgram::createFromText("sample", kSampleText);
  const GlImage texture(*Tests::imageOf({PixelFloat, 2, 1}, [](int x, int, int, int) { return 1 + 2 * x; })),
      output(ImageDescriptor(PixelFloat, 1, 1));
  for (const auto& c : cases) {
    sample(*program, texture, c.at, c.sampling, output);
    EXPECT_EQ(output.download()->valueAsDouble(0, 0, 0, 0), c.expected) << c.name;
  }
}

} // namespace
} // namespace Kelvaris
