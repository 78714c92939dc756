#include "GL/Program.h"

#include "GL/AbstractInclude.h"
#include "GL/Check.h"
#include "GL/GlImage.h"
#include "RequireGL.h"
#include "support/ExpectedLog.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <thread>

namespace Kelvaris {
namespace {

using GL::ImageAccess;
using GL::Program;
using Guard = GL::ContextManager::ActivationGuard;

/// Every texel of u_out gets value(x, y).
const char* const kFillText = R"(#version 450 core
layout(local_size_x = 8, local_size_y = 8) in;
layout(rg32f) writeonly uniform image2D u_out;
uniform float u_offset;
uniform int u_factor;
uniform vec2 u_direction;
uniform mat4 u_matrix;
#abstract_include value
void main() {
  ivec2 p = ivec2(gl_GlobalInvocationID.xy);
  if (any(greaterThanEqual(p, imageSize(u_out))))
    return;
  vec4 v = u_matrix * vec4(valueAt(p), 0.0, 1.0);
  imageStore(u_out, p, vec4(float(u_factor) * v.x + u_offset, dot(u_direction, v.xy), 0.0, 0.0));
}
)";

class Value : public GL::AbstractInclude {
public:
  explicit Value(std::string expression, float shift = 0.0f) : m_expression(std::move(expression)), m_shift(shift) {}
  std::string source(const std::string& prefix) const override {
    return "uniform float " + prefix + "_shift;\nvec2 " + prefix + "At(ivec2 p) { return " + m_expression + " + " +
           prefix + "_shift; }";
  }
  void setArguments(Program& program, const std::string& name) const override {
    program.setUniform(name + "_shift", m_shift);
  }

private:
  std::string m_expression;
  float m_shift;
};

void setFillUniforms(Program& program) {
  Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
  matrix(0, 1) = 100.0f; // adds 100 y to x, so that a transposed matrix would show
  program.setUniform("u_offset", 0.5f);
  program.setUniform("u_factor", 2);
  program.setUniform("u_direction", Eigen::Vector2f(10.0f, 1.0f));
  program.setUniform("u_matrix", matrix);
}

void run(Program& program, const GlImage& out) {
  program.bindImage("u_out", out, ImageAccess::WriteOnly);
  program.dispatchCompute((out.descriptor().width() + 7) / 8, (out.descriptor().height() + 7) / 8, 1);
  program.unbindImages();
  GL::memoryBarrier(GL::kAllBarriers);
}

TEST(Program, OthersMayBeDeletedUnderAnotherContext) {
  KELVARIS_REQUIRE_GL();
  const std::string text = "#version 450 core\nlayout(local_size_x = 8, local_size_y = 8) in;\n"
                           "layout(r32f) uniform writeonly image2D u_out;\n"
                           "void main() { imageStore(u_out, ivec2(gl_GlobalInvocationID.xy), vec4(VALUE)); }\n";
  const Guard guard;
  const GlImage out(ImageDescriptor(PixelFloat, 8, 8));
  auto first = Program::createComputeFromText("first", text, "#define VALUE 1.0");
  const auto second = Program::createComputeFromText("second", text, "#define VALUE 2.0");
  ASSERT_TRUE(first && second);
  const auto compute = [&](Program& program) {
    program.enable();
    run(program, out);
    program.disable();
    GL::finish();
  };
  compute(*first);
  compute(*second);
  std::thread([&] { first.reset(); }).join();
  GL::finish();
  compute(*second);
  EXPECT_EQ(out.download()->valueAsDouble(7, 7, 0, 0), 2.0);
}

TEST(Program, UniformsImagesAndIncludesReachTheShader) {
  KELVARIS_REQUIRE_GL();
  const Guard guard;
  const auto program = Program::createComputeFromText("fill", kFillText, {}, GL::CompilationMode::Deferred);
  ASSERT_TRUE(program);
  program->enable();
  for (const float shift : {0.0f, 3.0f})
    for (const bool swapped : {false, true}) {
      const Value value(swapped ? "vec2(p.yx)" : "vec2(p)", shift);
      ASSERT_TRUE(program->addAbstractIncludeDefinition(value, "value"));
      value.setArguments(*program, "value");
      setFillUniforms(*program);
      ASSERT_TRUE(program->addAbstractIncludeDefinition(value, "value")) << "unchanged, so the uniforms stay";
      const GlImage out(ImageDescriptor(PixelFloat, 21, 13, 1, 2));
      run(*program, out);
      const double error = Tests::worstError(*out.download(), [&](int x, int y, int, int channel) {
        const double v0 = (swapped ? y : x) + double{shift}, v1 = (swapped ? x : y) + double{shift},
                     first = v0 + 100 * v1;
        return channel == 0 ? 2 * first + 0.5 : 10 * first + v1;
      });
      EXPECT_EQ(error, 0.0) << shift << swapped;
    }
  program->disable();
}

TEST(Program, TellsWhyATextCannotBeCompiled) {
  KELVARIS_REQUIRE_GL();
  const Guard guard;
  const Tests::ExpectedLog log;
  EXPECT_FALSE(Program::createComputeFromText("broken",
                                              "#version 450 core\nlayout(local_size_x = 1) in;\n"
                                              "void main() { noSuchFunction(FOO); }\n",
                                              "#define FOO 7\n"));
  EXPECT_TRUE(log.contains("4 GL.Program: The shader broken can't be compiled"));
  EXPECT_TRUE(log.contains("noSuchFunction")) << "the driver's messages";
  EXPECT_TRUE(log.contains("   2 #define FOO 7\n")) << "the generated text, with line numbers";
  EXPECT_FALSE(Program::createCompute("NoSuchRepository/Some.comp"));
  EXPECT_TRUE(log.contains("There is no resource \"NoSuchRepository/Some.comp\" to make a program from"));
}

TEST(Program, TellsWhatIsWrongWithAnInclude) {
  KELVARIS_REQUIRE_GL();
  const Guard guard;
  const Tests::ExpectedLog log;
  EXPECT_FALSE(Program::createComputeFromText("fill", kFillText));
  EXPECT_TRUE(log.contains("The abstract include \"value\" of the shader fill has no definition"));

  const auto program = Program::createComputeFromText("fill", kFillText, {}, GL::CompilationMode::Deferred);
  EXPECT_FALSE(program->addAbstractIncludeDefinition(Value("vec2(p)"), "mask"));
  EXPECT_TRUE(log.contains("The shader fill has no abstract include \"mask\"; it has: value"));
  EXPECT_THROW(program->dispatchCompute(1, 1, 1), GL::Error);

  EXPECT_FALSE(program->addAbstractIncludeDefinition(Value("nonsense"), "value"));
  EXPECT_TRUE(log.contains("nonsense"));
  EXPECT_FALSE(program->addAbstractIncludeDefinition(Value("nonsense"), "value")) << "a broken text stays broken";
  EXPECT_TRUE(program->addAbstractIncludeDefinition(Value("vec2(p)"), "value"));
}

TEST(Program, RefusesWrongUse) {
  KELVARIS_REQUIRE_GL();
  std::unique_ptr<Program> program;
  {
    const Guard guard;
    program =
        Program::createComputeFromText("empty", "#version 450 core\nlayout(local_size_x = 1) in;\nvoid main() {}\n");
    ASSERT_TRUE(program);
    EXPECT_THROW(program->dispatchCompute(1, 1, 1), GL::Error) << "not enabled";
    program->enable();
    EXPECT_THROW(program->dispatchCompute(1, 0, 1), GL::Error);
    const GlImage image(ImageDescriptor(PixelFloat, 1, 1));
    EXPECT_THROW(program->bindImage("u_nothing", image, ImageAccess::ReadOnly), GL::Error);
    EXPECT_NO_THROW(program->setUniform("u_nothing", 1));
    program->disable();
  }
  EXPECT_THROW(program->enable(), GL::Error) << "no current context";
  EXPECT_THROW(program->setUniform("u_nothing", 1), GL::Error);
}

} // namespace
} // namespace Kelvaris
