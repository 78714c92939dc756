#include "GL/Program.h"

#include "Core/Log.h"
#include "Core/Resource.h"
#include "GL/AbstractInclude.h"
#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/DriverLock.h"
#include "GL/GlImage.h"
#include "GL/ShaderRebinding.h"
#include "GL/ShaderStorageBuffer.h"

#include <epoxy/gl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <sstream>
#include <utility>

namespace Kelvaris::GL {
namespace {

constexpr const char* kCategory = "GL.Program";

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    result.push_back(line);
  return result;
}

struct IncludeLine {
  std::string name;
  bool optional;
};

/// What stands behind `#abstract_include`, if the line is one.
std::optional<IncludeLine> includeOf(const std::string& line) {
  std::istringstream stream(line);
  std::string directive, name, option;
  if (!(stream >> directive >> name) || directive != "#abstract_include") return std::nullopt;
  stream >> option;
  return IncludeLine{name, option == "optional"};
}

std::string numbered(const std::string& text) {
  std::string result;
  int number = 0;
  for (const std::string& line : lines(text))
    result += fmt::format("{:4} {}\n", ++number, line);
  return result;
}

template <typename GetLength, typename GetLog> std::string driverLog(GetLength getLength, GetLog getLog) {
  GLint length = 0;
  getLength(&length);
  std::string text(static_cast<std::size_t>(std::max(length, 1)), '\0');
  getLog(length, text.data());
  return text.c_str();
}

void requireContext() {
  if (!ContextManager::hasCurrent())
    throw Error("no OpenGL context is current on this thread; hold a GL::ContextManager::ActivationGuard");
}

/// Deletes a shader at the end of its scope.
class Shader {
public:
  explicit Shader(GLenum stage) : m_id(KELVARIS_GL_CHECKED(glCreateShader(stage))) {}
  ~Shader() { glDeleteShader(m_id); }
  Shader(const Shader&) = delete;
  Shader& operator=(const Shader&) = delete;
  GLuint id() const { return m_id; }

  /// Returns whether that worked; the log says why not.
  bool compile(const std::string& name, const std::string& text) const {
    const char* source = text.c_str();
    KELVARIS_GL_CHECKED(glShaderSource(m_id, 1, &source, nullptr));
    KELVARIS_GL_CHECKED(glCompileShader(m_id));
    GLint ok = GL_FALSE;
    KELVARIS_GL_CHECKED(glGetShaderiv(m_id, GL_COMPILE_STATUS, &ok));
    if (ok) return true;
    const std::string messages =
        driverLog([&](GLint* length) { glGetShaderiv(m_id, GL_INFO_LOG_LENGTH, length); },
                  [&](GLint length, char* log) { glGetShaderInfoLog(m_id, length, nullptr, log); });
    Log::error(kCategory, "The shader {} can't be compiled:\n{}\n{}", name, messages, numbered(text));
    return false;
  }

private:
  GLuint m_id;
};

} // namespace

void memoryBarrier(unsigned barriers) {
  requireContext();
  KELVARIS_GL_CHECKED(glMemoryBarrier(barriers));
}

void finish() {
  requireContext();
  const DriverLock lock;
  KELVARIS_GL_CHECKED(glFinish());
}

void flush() {
  requireContext();
  const DriverLock lock;
  KELVARIS_GL_CHECKED(glFlush());
}

std::optional<std::string> Program::resourceText(const std::string& resource) {
  const std::optional<ByteBuffer> text = Resource::query(resource);
  if (text) return std::string(text->text());
  Log::error(kCategory, "There is no resource \"{}\" to make a program from", resource);
  return std::nullopt;
}

std::string Program::withDefines(const std::string& text, const std::string& defines) {
  if (defines.empty()) return text;
  std::size_t position = text.find("#version");
  position = position == std::string::npos ? 0 : text.find('\n', position) + 1;
  return text.substr(0, position) + defines + (defines.back() == '\n' ? "" : "\n") + text.substr(position);
}

std::unique_ptr<Program> Program::createCompute(const std::string& resource, const std::string& defines,
                                                CompilationMode mode) {
  const auto text = resourceText(resource);
  return text ? createComputeFromText(resource, *text, defines, mode) : nullptr;
}

std::unique_ptr<Program> Program::createComputeFromText(const std::string& name, const std::string& text,
                                                        const std::string& defines, CompilationMode mode) {
  auto program = std::make_unique<Program>(Token(), name, GL_COMPUTE_SHADER, withDefines(text, defines));
  if (mode == CompilationMode::Immediate && !program->build()) return nullptr;
  return program;
}

Program::Program(Token, std::string name, unsigned stage, std::string text, std::string vertexText)
    : m_name(std::move(name)), m_stage(stage), m_text(std::move(text)), m_vertexText(std::move(vertexText)) {
  for (const std::string& line : lines(m_text))
    if (const auto include = includeOf(line)) m_includes[include->name].optional = include->optional;
}

Program::~Program() {
  if (m_program == 0 && m_boundTextures.empty()) return;
  try {
    const ContextManager::ActivationGuard guard;
    const DriverLock lock;
    unbindTextures();
    glDeleteProgram(m_program);
  } catch (const Error& error) {
    Log::warning(kCategory, "The program of {} can't be deleted: {}", m_name, error.what());
  }
}

bool Program::addAbstractIncludeDefinition(const AbstractInclude& include, const std::string& name) {
  const auto found = m_includes.find(name);
  if (found == m_includes.end()) {
    std::vector<std::string> known;
    for (const auto& [existing, definition] : m_includes)
      known.push_back(existing);
    Log::error(kCategory, "The shader {} has no abstract include \"{}\"; it has: {}", m_name, name,
               known.empty() ? "none" : fmt::format("{}", fmt::join(known, ", ")));
    return false;
  }
  setText(found->second.text, include.source(name));
  return m_program != 0 || !hasAllDefinitions() || build();
}

void Program::removeAbstractIncludeDefinition(const std::string& name) {
  const auto found = m_includes.find(name);
  if (found != m_includes.end() && found->second.optional) setText(found->second.text, {});
}

void Program::addDefine(const std::string& line) {
  std::istringstream stream(line);
  std::string directive, macro;
  stream >> directive >> macro;
  setText(m_defines[macro], line);
}

/// A part of the text that changes makes the program out of date.
void Program::setText(std::string& part, std::string text) {
  if (part == text) return;
  part = std::move(text);
  if (m_program == 0) return;
  requireContext();
  const DriverLock lock;
  glDeleteProgram(std::exchange(m_program, 0));
}

std::string Program::generatedText() const {
  std::string result;
  for (const std::string& line : lines(m_text)) {
    if (const auto include = includeOf(line)) {
      const std::string& definition = m_includes.at(include->name).text;
      if (include->optional && !definition.empty()) {
        std::string macro = include->name;
        std::transform(macro.begin(), macro.end(), macro.begin(), [](unsigned char c) { return std::toupper(c); });
        result += fmt::format("#define HAS_{}\n", macro);
      }
      result += definition;
    } else {
      result += line;
    }
    result += '\n';
  }
  std::string defines;
  for (const auto& [macro, line] : m_defines)
    defines += line + '\n';
  return withDefines(result, defines);
}

bool Program::hasAllDefinitions() const {
  return std::none_of(m_includes.begin(), m_includes.end(),
                      [](const auto& include) { return include.second.text.empty() && !include.second.optional; });
}

bool Program::build() {
  requireContext();
  const DriverLock lock;
  glDeleteProgram(std::exchange(m_program, 0));
  for (const auto& [include, definition] : m_includes)
    if (definition.text.empty() && !definition.optional) {
      Log::error(kCategory, "The abstract include \"{}\" of the shader {} has no definition", include, m_name);
      return false;
    }

  const std::string text = generatedText();
  const Shader shader(m_stage);
  if (!shader.compile(m_name, text)) return false;
  std::optional<Shader> vertexShader;
  if (!m_vertexText.empty() && !vertexShader.emplace(GL_VERTEX_SHADER).compile(m_name, m_vertexText)) return false;

  const GLuint program = KELVARIS_GL_CHECKED(glCreateProgram());
  const auto attached = [&](auto&& call) {
    call(shader.id());
    if (vertexShader) call(vertexShader->id());
  };
  attached([&](GLuint id) { KELVARIS_GL_CHECKED(glAttachShader(program, id)); });
  KELVARIS_GL_CHECKED(glLinkProgram(program));
  attached([&](GLuint id) { KELVARIS_GL_CHECKED(glDetachShader(program, id)); });
  GLint ok = GL_FALSE;
  KELVARIS_GL_CHECKED(glGetProgramiv(program, GL_LINK_STATUS, &ok));
  if (!ok) {
    const std::string messages =
        driverLog([&](GLint* length) { glGetProgramiv(program, GL_INFO_LOG_LENGTH, length); },
                  [&](GLint length, char* log) { glGetProgramInfoLog(program, length, nullptr, log); });
    glDeleteProgram(program);
    Log::error(kCategory, "The shader {} can't be linked:\n{}\n{}", m_name, messages, numbered(text));
    return false;
  }

  m_program = program;
  if (m_enabled) KELVARIS_GL_CHECKED(glUseProgram(m_program));
  return true;
}

void Program::requireBuilt() {
  requireContext();
  if (m_program == 0 && !build()) throw Error(fmt::format("the program of {} can't be built", m_name));
}

void Program::requireEnabled() {
  requireBuilt();
  if (!m_enabled) throw Error(fmt::format("the program of {} is run without being enabled", m_name));
}

void Program::enable() {
  requireContext();
  m_enabled = true;
  // A program that still waits for its includes comes into use when it is built.
  if (m_program != 0) KELVARIS_GL_CHECKED(glUseProgram(m_program));
}

void Program::disable() {
  requireContext();
  m_enabled = false;
  KELVARIS_GL_CHECKED(glUseProgram(0));
  unbindImages();
  unbindTextures();
  unbindStorageBuffers();
}

int Program::uniformLocation(const std::string& name) {
  requireBuilt();
  return KELVARIS_GL_CHECKED(glGetUniformLocation(m_program, name.c_str()));
}

void Program::setUniform(const std::string& name, int value) {
  const GLint location = uniformLocation(name);
  KELVARIS_GL_CHECKED(glProgramUniform1i(m_program, location, value));
}

void Program::setUniform(const std::string& name, float value) {
  const GLint location = uniformLocation(name);
  KELVARIS_GL_CHECKED(glProgramUniform1f(m_program, location, value));
}

void Program::setUniform(const std::string& name, const Eigen::Vector2f& value) {
  const GLint location = uniformLocation(name);
  KELVARIS_GL_CHECKED(glProgramUniform2fv(m_program, location, 1, value.data()));
}

void Program::setUniform(const std::string& name, const Eigen::Vector3f& value) {
  const GLint location = uniformLocation(name);
  KELVARIS_GL_CHECKED(glProgramUniform3fv(m_program, location, 1, value.data()));
}

void Program::setUniform(const std::string& name, const Eigen::Vector4f& value) {
  const GLint location = uniformLocation(name);
  KELVARIS_GL_CHECKED(glProgramUniform4fv(m_program, location, 1, value.data()));
}

void Program::setUniform(const std::string& name, const Eigen::Vector3i& value) {
  const GLint location = uniformLocation(name);
  KELVARIS_GL_CHECKED(glProgramUniform3iv(m_program, location, 1, value.data()));
}

void Program::setUniform(const std::string& name, const Eigen::Matrix4f& value) {
  const GLint location = uniformLocation(name);
  KELVARIS_GL_CHECKED(glProgramUniformMatrix4fv(m_program, location, 1, GL_FALSE, value.data()));
}

void Program::bindImage(const std::string& name, const GlImage& image, ImageAccess access) {
  const GLint location = uniformLocation(name);
  if (location < 0) throw Error(fmt::format("the shader {} uses no image \"{}\"", m_name, name));
  const auto bound = std::find(m_boundImages.begin(), m_boundImages.end(), name);
  const auto unit = static_cast<GLuint>(bound - m_boundImages.begin());
  if (bound == m_boundImages.end()) m_boundImages.push_back(name);
  KELVARIS_GL_CHECKED(
      glBindImageTexture(unit, image.texture(), 0, GL_TRUE, 0, static_cast<GLenum>(access), image.internalFormat()));
  KELVARIS_GL_CHECKED(glProgramUniform1i(m_program, location, static_cast<GLint>(unit)));
}

void Program::unbindImages() {
  requireContext();
  for (std::size_t unit = 0; unit < m_boundImages.size(); ++unit)
    KELVARIS_GL_CHECKED(glBindImageTexture(static_cast<GLuint>(unit), 0, 0, GL_FALSE, 0, GL_READ_ONLY, GL_R32F));
  m_boundImages.clear();
}

void Program::bindTexture(const std::string& name, const GlImage& image, const Sampling& sampling) {
  const GLint location = uniformLocation(name);
  if (location < 0) throw Error(fmt::format("the shader {} uses no texture \"{}\"", m_name, name));
  auto bound = std::find_if(m_boundTextures.begin(), m_boundTextures.end(),
                            [&](const BoundTexture& texture) { return texture.name == name; });
  const auto unit = static_cast<GLuint>(bound - m_boundTextures.begin());
  if (bound == m_boundTextures.end()) {
    GLuint sampler = 0;
    KELVARIS_GL_CHECKED(glCreateSamplers(1, &sampler));
    bound = m_boundTextures.insert(bound, {name, sampler});
  }
  const auto filter = static_cast<GLint>(sampling.filter), wrap = static_cast<GLint>(sampling.wrap);
  KELVARIS_GL_CHECKED(glSamplerParameteri(bound->sampler, GL_TEXTURE_MIN_FILTER, filter));
  KELVARIS_GL_CHECKED(glSamplerParameteri(bound->sampler, GL_TEXTURE_MAG_FILTER, filter));
  KELVARIS_GL_CHECKED(glSamplerParameteri(bound->sampler, GL_TEXTURE_WRAP_S, wrap));
  KELVARIS_GL_CHECKED(glSamplerParameteri(bound->sampler, GL_TEXTURE_WRAP_T, wrap));
  KELVARIS_GL_CHECKED(glSamplerParameterfv(bound->sampler, GL_TEXTURE_BORDER_COLOR, sampling.borderColor.data()));
  KELVARIS_GL_CHECKED(glBindTextureUnit(unit, image.texture()));
  KELVARIS_GL_CHECKED(glBindSampler(unit, bound->sampler));
  KELVARIS_GL_CHECKED(glProgramUniform1i(m_program, location, static_cast<GLint>(unit)));
}

/// A context keeps what is bound in it alive, and contexts outlive the images.
void Program::unbindTextures() {
  for (std::size_t unit = 0; unit < m_boundTextures.size(); ++unit) {
    glBindTextureUnit(static_cast<GLuint>(unit), 0);
    glBindSampler(static_cast<GLuint>(unit), 0);
    glDeleteSamplers(1, &m_boundTextures[unit].sampler);
  }
  m_boundTextures.clear();
}

void Program::bindStorageBuffer(const std::string& name, const ShaderStorageBuffer& buffer) {
  requireBuilt();
  const GLuint block = KELVARIS_GL_CHECKED(glGetProgramResourceIndex(m_program, GL_SHADER_STORAGE_BLOCK, name.c_str()));
  if (block == GL_INVALID_INDEX) throw Error(fmt::format("the shader {} uses no storage buffer \"{}\"", m_name, name));
  const auto bound = std::find(m_boundBuffers.begin(), m_boundBuffers.end(), name);
  const auto point = static_cast<GLuint>(bound - m_boundBuffers.begin());
  if (bound == m_boundBuffers.end()) m_boundBuffers.push_back(name);
  KELVARIS_GL_CHECKED(glShaderStorageBlockBinding(m_program, block, point));
  KELVARIS_GL_CHECKED(glBindBufferBase(GL_SHADER_STORAGE_BUFFER, point, buffer.buffer()));
}

void Program::unbindStorageBuffers() {
  requireContext();
  for (std::size_t point = 0; point < m_boundBuffers.size(); ++point)
    KELVARIS_GL_CHECKED(glBindBufferBase(GL_SHADER_STORAGE_BUFFER, static_cast<GLuint>(point), 0));
  m_boundBuffers.clear();
}

void Program::dispatchCompute(int groupsX, int groupsY, int groupsZ) {
  requireEnabled();
  if (groupsX < 1 || groupsY < 1 || groupsZ < 1)
    throw Error(fmt::format("{} x {} x {} work groups: each number must be at least 1", groupsX, groupsY, groupsZ));
  const DriverLock lock;
  rebindComputeShader();
  KELVARIS_GL_CHECKED(
      glDispatchCompute(static_cast<GLuint>(groupsX), static_cast<GLuint>(groupsY), static_cast<GLuint>(groupsZ)));
}

} // namespace Kelvaris::GL
