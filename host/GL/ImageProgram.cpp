#include "GL/ImageProgram.h"

#include "GL/Check.h"
#include "GL/DriverLock.h"
#include "GL/GlImage.h"
#include "GL/ShaderRebinding.h"

#include <epoxy/gl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Kelvaris::GL {
namespace {

/// One triangle that covers the whole image.
constexpr const char* kVertexText = R"(#version 450 core
void main() {
  gl_Position = vec4(gl_VertexID == 1 ? 3.0 : -1.0, gl_VertexID == 2 ? 3.0 : -1.0, 0.0, 1.0);
}
)";

/// Frame buffers and vertex arrays belong to one context alone, so they are made for each run.
class FrameBuffer {
public:
  FrameBuffer() {
    KELVARIS_GL_CHECKED(glCreateFramebuffers(1, &m_buffer));
    KELVARIS_GL_CHECKED(glCreateVertexArrays(1, &m_vertices));
    KELVARIS_GL_CHECKED(glBindFramebuffer(GL_FRAMEBUFFER, m_buffer));
    KELVARIS_GL_CHECKED(glBindVertexArray(m_vertices));
  }
  ~FrameBuffer() {
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glBindVertexArray(0);
    glDisable(GL_SCISSOR_TEST);
    glDeleteFramebuffers(1, &m_buffer);
    glDeleteVertexArrays(1, &m_vertices);
  }
  FrameBuffer(const FrameBuffer&) = delete;
  FrameBuffer& operator=(const FrameBuffer&) = delete;

  void attach(const GlImage& image, int slice) const {
    if (image.descriptor().slices() > 1)
      KELVARIS_GL_CHECKED(glNamedFramebufferTextureLayer(m_buffer, GL_COLOR_ATTACHMENT0, image.texture(), 0, slice));
    else
      KELVARIS_GL_CHECKED(glNamedFramebufferTexture(m_buffer, GL_COLOR_ATTACHMENT0, image.texture(), 0));
    const GLenum status = KELVARIS_GL_CHECKED(glCheckNamedFramebufferStatus(m_buffer, GL_FRAMEBUFFER));
    if (status != GL_FRAMEBUFFER_COMPLETE)
      throw Error(fmt::format("OpenGL can't draw into an image of {}: frame buffer status {:#x}",
                              image.descriptor().toString(), status));
  }

private:
  GLuint m_buffer = 0;
  GLuint m_vertices = 0;
};

/// Columns or rows first to last - 1, whose centres lie from `min` to `max`.
struct Range {
  GLint first;
  GLsizei count;
  Range(double min, double max, int size)
      : first(static_cast<GLint>(std::clamp(std::ceil(min - 0.5), 0.0, static_cast<double>(size)))),
        count(std::max(static_cast<GLint>(std::clamp(std::floor(max + 0.5), 0.0, static_cast<double>(size))) - first,
                       0)) {}
};

} // namespace

std::unique_ptr<ImageProgram> ImageProgram::create(const std::string& resource, const std::string& defines,
                                                   CompilationMode mode) {
  const auto text = resourceText(resource);
  return text ? createFromText(resource, *text, defines, mode) : nullptr;
}

std::unique_ptr<ImageProgram> ImageProgram::createFromText(const std::string& name, const std::string& text,
                                                           const std::string& defines, CompilationMode mode) {
  auto program =
      std::make_unique<ImageProgram>(Token(), name, GL_FRAGMENT_SHADER, withDefines(text, defines), kVertexText);
  if (mode == CompilationMode::Immediate && !program->build()) return nullptr;
  return program;
}

void ImageProgram::compute(const GlImage& output, const Geometry::AlignedBox& box) {
  requireEnabled();
  const ImageDescriptor& d = output.descriptor();
  const DriverLock lock;
  const FrameBuffer buffer;
  KELVARIS_GL_CHECKED(glViewport(0, 0, d.width(), d.height()));
  if (!box.isEmpty()) {
    const Range columns(box.min().x(), box.max().x(), d.width()), rows(box.min().y(), box.max().y(), d.height());
    KELVARIS_GL_CHECKED(glEnable(GL_SCISSOR_TEST));
    KELVARIS_GL_CHECKED(glScissor(columns.first, rows.first, columns.count, rows.count));
  }
  for (int slice = 0; slice < d.slices(); ++slice) {
    buffer.attach(output, slice);
    if (slice == 0) rebindDrawShaders();
    setUniform("u_slice", slice);
    KELVARIS_GL_CHECKED(glDrawArrays(GL_TRIANGLES, 0, 3));
  }
}

} // namespace Kelvaris::GL
