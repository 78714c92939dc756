#include "GL/ShaderStorageBuffer.h"

#include "GL/Check.h"
#include "GL/GlImage.h"
#include "GL/Program.h"
#include "RequireGL.h"
#include "support/ErrorOf.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <vector>

namespace Kelvaris {
namespace {

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

TEST(ShaderStorageBuffer, ReachesTheShaderUnderItsName) {
  KELVARIS_REQUIRE_GL();
  const GL::ContextManager::ActivationGuard guard;
  const auto program = GL::Program::createComputeFromText("difference", kDifferenceText);
  ASSERT_TRUE(program);
  const std::vector<std::int32_t> large = {1 << 30, -7, -(1 << 30), 5}, small = {0, -1, 0, 9};
  const GL::ShaderStorageBuffer a(large), b(small);
  const GlImage out(ImageDescriptor(PixelFloat, 4, 1));
  program->enable();
  program->bindImage("u_out", out, GL::ImageAccess::WriteOnly);
  program->bindStorageBuffer("_minuend", a);
  program->bindStorageBuffer("_subtrahend", b);
  program->dispatchCompute(1, 1, 1);
  GL::memoryBarrier(GL::kAllBarriers);
  EXPECT_EQ(Tests::worstError(*out.download(),
                              [&](int x, int, int, int) {
                                const auto i = static_cast<std::size_t>(x);
                                return large[i] - small[i];
                              }),
            0.0);
  EXPECT_EQ(Tests::errorOf<GL::Error>([&] { program->bindStorageBuffer("_nothing", a); }),
            "the shader difference uses no storage buffer \"_nothing\"");
  program->disable();
}

TEST(ShaderStorageBuffer, MayBeEmptyButNotTooLarge) {
  KELVARIS_REQUIRE_GL();
  const GL::ShaderStorageBuffer none({});
  EXPECT_EQ(none.size(), 0u);
  // The values of such a span are never touched.
  const std::int32_t value = 0;
  const std::size_t count = GL::ShaderStorageBuffer::maxByteSize() / sizeof(value) + 1;
  const std::string error =
      Tests::errorOf<GL::Error>([&] { GL::ShaderStorageBuffer(std::span<const std::int32_t>(&value, count)); });
  EXPECT_CONTAINS(error, std::to_string(count));
  EXPECT_CONTAINS(error, std::to_string(GL::ShaderStorageBuffer::maxByteSize()));
}

} // namespace
} // namespace Kelvaris
