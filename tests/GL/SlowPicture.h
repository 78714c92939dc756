#pragma once

#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/ImageProgram.h"
#include "GL/Program.h"
#include "support/Samples.h"

#include <epoxy/gl.h>

namespace Kelvaris::Tests {

/// A texture that is still being drawn when draw() returns, with the pixel's column + kOffset in every pixel in the
/// end.
class SlowPicture {
public:
  static constexpr int kWidth = 64, kDraws = 20, kOffset = 100 * kDraws;

  SlowPicture() : texture(std::make_shared<GlImage>(ImageDescriptor(PixelFloat, kWidth, kWidth))) {
    const GL::ContextManager::ActivationGuard guard;
    m_program = GL::ImageProgram::createFromText("slow", kText);
  }
  ~SlowPicture() {
    const GL::ContextManager::ActivationGuard guard;
    glDeleteSync(m_mark);
  }
  SlowPicture(const SlowPicture&) = delete;
  SlowPicture& operator=(const SlowPicture&) = delete;

  /// In the calling thread's context, which must last: a guard's end would wait for the drawing.
  void draw() {
    m_program->enable();
    m_program->setUniform("u_turns", 400);
    for (int i = 1; i <= kDraws; ++i) {
      m_program->setUniform("u_offset", 100.0f * static_cast<float>(i));
      m_program->compute(*texture);
    }
    m_program->disable();
    m_mark = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
  }

  /// Drivers may wait by themselves when a texture is read, so the pixels alone don't tell.
  bool isDrawn() const {
    const GL::ContextManager::ActivationGuard guard;
    GLint status = GL_UNSIGNALED;
    glGetSynciv(m_mark, GL_SYNC_STATUS, 1, nullptr, &status);
    return status == GL_SIGNALED;
  }

  /// Largest deviation of the pixels.
  double error() const {
    return worstError(*texture->download(), [](int x, int, int, int) { return x + kOffset; });
  }

  const std::shared_ptr<GlImage> texture;

private:
  /// A long way to the result: every turn gives back the value that it got.
  static constexpr const char* kText = R"(#version 450 core
uniform int u_turns;
uniform float u_offset;
layout(location = 0) out vec4 result;
void main() {
  float value = gl_FragCoord.x - 0.5;
  for (int i = 0; i < u_turns; ++i)
    value = sqrt(value * value + float(i % 2)) * sqrt(1.0 - float(i % 2) / (value * value + 1.0));
  result = vec4(round(value) + u_offset);
}
)";

  std::unique_ptr<GL::ImageProgram> m_program;
  GLsync m_mark = nullptr; ///< behind the drawing
};

} // namespace Kelvaris::Tests
