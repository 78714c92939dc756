#include "GL/ShaderStorageBuffer.h"

#include "GL/Check.h"
#include "GL/GlImage.h"
#include "GL/Program.h"
#include "RequireGL.h"
#include "support/ErrorOf.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <memory>
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
  if (x < minuend.length() && x < imageSize(u_out).x)
    imageStore(u_out, ivec2(x, 0), vec4(float(minuend[x] - subtrahend[x])));
}
)";

TEST(ShaderStorageBuffer, ReachesTheShaderUnderItsName) {
  KELVARIS_REQUIRE_GL();
  const GL::ContextManager::ActivationGuard guard;
  const auto program = GL::Program::createComputeFromText("difference", kDifferenceText);
  ASSERT_TRUE(program);
  const std::vector<std::int32_t> large = {1 << 30, -7, -(1 << 30), 5, 100, 3, 2}, small = {0, -1, 2, 9, 1, 1, 3};
  const GL::ShaderStorageBuffer a(large), b(small);
  EXPECT_EQ(a.size(), 7u);
  program->enable();
  for (const bool swapped : {false, true}) { // a name that is bound again takes the other buffer
    const auto out = std::make_unique<GlImage>(ImageDescriptor(PixelFloat, 7, 1));
    program->bindImage("u_out", *out, GL::ImageAccess::WriteOnly);
    program->bindStorageBuffer("_minuend", swapped ? b : a);
    program->bindStorageBuffer("_subtrahend", swapped ? a : b);
    program->dispatchCompute(2, 1, 1);
    GL::memoryBarrier(GL::kAllBarriers);
    const double error = Tests::worstError(*out->download(), [&](int x, int, int, int) {
      const auto i = static_cast<std::size_t>(x);
      return static_cast<double>(static_cast<float>(swapped ? small[i] - large[i] : large[i] - small[i]));
    });
    EXPECT_EQ(error, 0.0) << swapped;
  }
  const std::string error = Tests::errorOf<GL::Error>([&] { program->bindStorageBuffer("_nothing", a); });
  EXPECT_EQ(error, "the shader difference uses no storage buffer \"_nothing\"");
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
