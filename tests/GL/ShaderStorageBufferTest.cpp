#include "GL/ShaderStorageBuffer.h"

#include "GL/Check.h"
#include "GL/GlImage.h"
#include "GL/Program.h"
#include "RequireGL.h"
#include "support/ErrorOf.h"
#include "support/Samples.h"

namespace Kelvaris {
namespace {

using ShaderStorageBufferTest = Tests::ContextTest;

/// Texel x of u_out gets minuend[x] - subtrahend[x].
const char* const kDifferenceText = R"(#version 450 core
layout(local_size_x = 4) in;
layout(r32f) writeonly uniform image2D u_out;
layout(std430) readonly buffer _minuend { int minuend[]; };
layout(std430) readonly buffer _subtrahend { int subtrahend[]; };
void main() {
  int x = int(gl_GlobalInvocationID.x);
  imageStore(u_out, ivec2(x, 0), vec4(float(minuend[x] - subtrahend[x])));
}
)";

TEST_F(ShaderStorageBufferTest, ReachesTheShaderUnderItsName) {
  const auto program = GL::Program::createComputeFromText("difference", kDifferenceText);
  const std::vector<std::int32_t> large = {1 << 30, -7, -(1 << 30), 5}, small = {0, -1, 0, 9};
  const double difference[] = {1 << 30, -6, -(1 << 30), -4};
  const GL::ShaderStorageBuffer a(large), b(small);
  const GlImage out(ImageDescriptor(PixelFloat, 4, 1));
  program->enable();
  program->bindImage("u_out", out, GL::ImageAccess::WriteOnly);
  program->bindStorageBuffer("_minuend", a);
  program->bindStorageBuffer("_subtrahend", b);
  program->dispatchCompute(1, 1, 1);
  GL::memoryBarrier(GL::kAllBarriers);
  EXPECT_EQ(Tests::worstError(*out.download(), [&](int x, int, int, int) { return difference[x]; }), 0.0);
  EXPECT_EQ(Tests::errorOf<GL::Error>([&] { program->bindStorageBuffer("_nothing", a); }),
            "the shader difference uses no storage buffer \"_nothing\"");
  program->disable();
}

TEST_F(ShaderStorageBufferTest, MayBeEmptyButNotTooLarge) {
  EXPECT_EQ(GL::ShaderStorageBuffer({}).size(), 0u);
  // The values of such a span are never touched.
  const std::int32_t value = 0;
  const std::size_t most = GL::ShaderStorageBuffer::maxByteSize();
  const std::span<const std::int32_t> tooLarge(&value, most / sizeof(value) + 1);
  EXPECT_CONTAINS(Tests::errorOf<GL::Error>([&] { const GL::ShaderStorageBuffer buffer(tooLarge); }),
                  std::to_string(most));
}

} // namespace
} // namespace Kelvaris
