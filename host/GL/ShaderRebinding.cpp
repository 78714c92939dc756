#include "GL/ShaderRebinding.h"

#include "GL/Check.h"

#include <epoxy/gl.h>

#include <array>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace Kelvaris::GL {
namespace {

constexpr const char* kVertexText = "#version 450 core\nvoid main() { gl_Position = vec4(0.0, 0.0, 0.0, 1.0); }\n";
constexpr const char* kFragmentText =
    "#version 450 core\nlayout(location = 0) out vec4 result;\nvoid main() { result = vec4(0.0); }\n";
constexpr const char* kComputeText = "#version 450 core\nlayout(local_size_x = 1) in;\nvoid main() {}\n";

/// Lives as long as the contexts, which all share it: as long as the process.
GLuint makeProgram(std::initializer_list<std::pair<GLenum, const char*>> stages) {
  const GLuint program = KELVARIS_GL_CHECKED(glCreateProgram());
  for (const auto& [type, text] : stages) {
    const GLuint shader = KELVARIS_GL_CHECKED(glCreateShader(type));
    KELVARIS_GL_CHECKED(glShaderSource(shader, 1, &text, nullptr));
    KELVARIS_GL_CHECKED(glCompileShader(shader));
    KELVARIS_GL_CHECKED(glAttachShader(program, shader));
    glDeleteShader(shader);
  }
  KELVARIS_GL_CHECKED(glLinkProgram(program));
  KELVARIS_GL_CHECKED(glFinish()); // before other contexts use it
  return program;
}

bool isMesa() {
  static const bool mesa =
      std::string_view(reinterpret_cast<const char*>(glGetString(GL_VERSION))).find("Mesa") != std::string_view::npos;
  return mesa;
}

/// The program in use, which comes back into use at the end.
class OtherProgram {
public:
  explicit OtherProgram(GLuint other) {
    KELVARIS_GL_CHECKED(glGetIntegerv(GL_CURRENT_PROGRAM, &m_program));
    KELVARIS_GL_CHECKED(glUseProgram(other));
  }
  ~OtherProgram() { glUseProgram(static_cast<GLuint>(m_program)); }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;

private:
  GLint m_program = 0;
};

} // namespace

void rebindDrawShaders() {
  if (!isMesa()) return;
  static const GLuint other = makeProgram({{GL_VERTEX_SHADER, kVertexText}, {GL_FRAGMENT_SHADER, kFragmentText}});
  const OtherProgram used(other);
  const GLboolean scissor = glIsEnabled(GL_SCISSOR_TEST);
  std::array<GLint, 4> box{};
  KELVARIS_GL_CHECKED(glGetIntegerv(GL_SCISSOR_BOX, box.data()));
  KELVARIS_GL_CHECKED(glEnable(GL_SCISSOR_TEST));
  KELVARIS_GL_CHECKED(glScissor(0, 0, 0, 0));
  KELVARIS_GL_CHECKED(glDrawArrays(GL_TRIANGLES, 0, 3));
  KELVARIS_GL_CHECKED(glScissor(box[0], box[1], box[2], box[3]));
  if (!scissor) KELVARIS_GL_CHECKED(glDisable(GL_SCISSOR_TEST));
}

void rebindComputeShader() {
  if (!isMesa()) return;
  static const GLuint other = makeProgram({{GL_COMPUTE_SHADER, kComputeText}});
  const OtherProgram used(other);
  KELVARIS_GL_CHECKED(glDispatchCompute(1, 1, 1));
}

} // namespace Kelvaris::GL
