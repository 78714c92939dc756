#include "GL/Program.h"

#include "GL/AbstractInclude.h"
#include "GL/Check.h"
#include "GL/GlImage.h"
#include "GL/ImageProgram.h"
#include "RequireGL.h"
#include "support/ExpectedLog.h"
#include "support/Samples.h"

#include <thread>

namespace Kelvaris {
namespace {

using GL::ImageAccess;
using GL::Program;
using ProgramTest = Tests::ContextTest;

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

void run(Program& program, const GlImage& out) {
  program.bindImage("u_out", out, ImageAccess::WriteOnly);
  program.dispatchCompute((out.descriptor().width() + 7) / 8, (out.descriptor().height() + 7) / 8, 1);
  program.unbindImages();
  GL::memoryBarrier(GL::kAllBarriers);
}

/// `make` makes a program that fills an image with the value that the define tells; `compute` runs it.
template <typename Make, typename Compute> void expectOthersMayBeDeleted(const Make& make, const Compute& compute) {
  const GlImage out(ImageDescriptor(PixelFloat, 8, 8));
  auto first = make("#define VALUE 1.0");
  const auto second = make("#define VALUE 2.0");
  const auto runOnce = [&](auto& program) {
    program.enable();
    compute(program, out);
    program.disable();
    GL::finish();
  };
  runOnce(*first);
  runOnce(*second);
  std::thread([&] { first.reset(); }).join();
  GL::finish();
  runOnce(*second);
  EXPECT_EQ(out.download()->valueAsDouble(7, 7, 0, 0), 2.0);
}

TEST_F(ProgramTest, OthersMayBeDeletedUnderAnotherContext) {
  const std::string version = "#version 450 core\n";
  expectOthersMayBeDeleted(
      [&](const std::string& define) {
        return Program::createComputeFromText(
            "compute",
            version + "layout(local_size_x = 8, local_size_y = 8) in;\nlayout(r32f) uniform writeonly image2D u_out;\n"
                      "void main() { imageStore(u_out, ivec2(gl_GlobalInvocationID.xy), vec4(VALUE)); }\n",
            define);
      },
      run);
  expectOthersMayBeDeleted(
      [&](const std::string& define) {
        return GL::ImageProgram::createFromText(
            "draw", version + "layout(location = 0) out vec4 result;\nvoid main() { result = vec4(VALUE); }\n", define);
      },
      [](GL::ImageProgram& program, const GlImage& out) { program.compute(out); });
}

TEST_F(ProgramTest, UniformsImagesAndIncludesReachTheShader) {
  const auto program = Program::createComputeFromText("fill", kFillText, {}, GL::CompilationMode::Deferred);
  program->enable();
  for (const float shift : {0.0f, 3.0f})
    for (const bool swapped : {false, true}) {
      const Value value(swapped ? "vec2(p.yx)" : "vec2(p)", shift);
      ASSERT_TRUE(program->addAbstractIncludeDefinition(value, "value"));
      value.setArguments(*program, "value");
      Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
      matrix(0, 1) = 100.0f; // adds 100 y to x, so that a transposed matrix would show
      program->setUniform("u_offset", 0.5f);
      program->setUniform("u_factor", 2);
      program->setUniform("u_direction", Eigen::Vector2f(10.0f, 1.0f));
      program->setUniform("u_matrix", matrix);
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

TEST_F(ProgramTest, TellsWhyATextCannotBeCompiled) {
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
  EXPECT_FALSE(Program::createComputeFromText("fill", kFillText));
  EXPECT_TRUE(log.contains("The abstract include \"value\" of the shader fill has no definition"));

  const auto program = Program::createComputeFromText("fill", kFillText, {}, GL::CompilationMode::Deferred);
  EXPECT_FALSE(program->addAbstractIncludeDefinition(Value("vec2(p)"), "mask"));
  EXPECT_TRUE(log.contains("The shader fill has no abstract include \"mask\"; it has: value"));
  EXPECT_THROW(program->dispatchCompute(1, 1, 1), GL::Error);
  for (int i = 0; i < 2; ++i)
    EXPECT_FALSE(program->addAbstractIncludeDefinition(Value("nonsense"), "value")) << "a broken text stays broken";
  EXPECT_TRUE(log.contains("nonsense"));
  EXPECT_TRUE(program->addAbstractIncludeDefinition(Value("vec2(p)"), "value"));
}

TEST(ProgramUse, IsRefusedWhereItIsWrong) {
  KELVARIS_REQUIRE_GL();
  std::unique_ptr<Program> program;
  GL::ContextManager::get().runWithOpenGL([&] {
    program =
        Program::createComputeFromText("empty", "#version 450 core\nlayout(local_size_x = 1) in;\nvoid main() {}\n");
    EXPECT_THROW(program->dispatchCompute(1, 1, 1), GL::Error) << "not enabled";
    program->enable();
    EXPECT_THROW(program->dispatchCompute(1, 0, 1), GL::Error);
    const GlImage image(ImageDescriptor(PixelFloat, 1, 1));
    EXPECT_THROW(program->bindImage("u_nothing", image, ImageAccess::ReadOnly), GL::Error);
    EXPECT_NO_THROW(program->setUniform("u_nothing", 1));
    program->disable();
  });
  EXPECT_THROW(program->enable(), GL::Error) << "no current context";
  EXPECT_THROW(program->setUniform("u_nothing", 1), GL::Error);
}

} // namespace
} // namespace Kelvaris
