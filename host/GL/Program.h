#pragma once

#include <Eigen/Core>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Kelvaris {
class GlImage;
}

namespace Kelvaris::GL {

class AbstractInclude;

/// When a shader is compiled: at once, or as soon as its abstract includes have definitions, at the latest at its first
/// use.
enum class CompilationMode : int { Immediate = 0, Deferred = 1 };

/// What a shader does with an image that is bound to it (GL_READ_ONLY, GL_WRITE_ONLY, GL_READ_WRITE).
enum class ImageAccess : unsigned { ReadOnly = 35000, WriteOnly = 35001, ReadWrite = 35002 };

inline constexpr unsigned kImageAccessBarrier = 32;  ///< GL_SHADER_IMAGE_ACCESS_BARRIER_BIT
inline constexpr unsigned kAllBarriers = 0xFFFFFFFF; ///< GL_ALL_BARRIER_BITS

/// Orders what shaders write before the uses that `barriers` name, in the calling thread's context.
void memoryBarrier(unsigned barriers);

/// A compute program made from one GLSL text. The text may hold lines `#abstract_include NAME`: each is replaced by the
/// source of the definition given under that name before the text is compiled.
///
/// Everything but the destructor needs a current context (ContextManager::ActivationGuard) and throws GL::Error without
/// one or when a call fails. One thread at a time.
class Program {
public:
  /// The text is a resource, "<repository>/<resource>"; `defines` are complete lines that go behind its #version line.
  /// Null if the resource is missing or, in immediate mode, the text can't be compiled; the log says why, with the
  /// driver's messages and the generated text.
  static std::unique_ptr<Program> createCompute(const std::string& resource, const std::string& defines = {},
                                                CompilationMode mode = CompilationMode::Immediate);
  /// The same from a text at hand; `name` stands for it in messages.
  static std::unique_ptr<Program> createComputeFromText(const std::string& name, const std::string& text,
                                                        const std::string& defines = {},
                                                        CompilationMode mode = CompilationMode::Immediate);

  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Gives the include `name` its text. Once all have one, the program is compiled, unless nothing changed; its
  /// uniforms are then to be set anew. False if the shader has no such include or can't be compiled; the log says why.
  bool addAbstractIncludeDefinition(const AbstractInclude& include, const std::string& name);

  /// Makes this the program in use; disable() makes it none.
  void enable();
  void disable();

  /// Sets a uniform. One that the shader doesn't use is ignored.
  void setUniform(const std::string& name, int value);
  void setUniform(const std::string& name, float value);
  void setUniform(const std::string& name, const Eigen::Vector2f& value);
  void setUniform(const std::string& name, const Eigen::Matrix4f& value);

  /// Binds the image's texture, all slices, to the image uniform `name`.
  void bindImage(const std::string& name, const GlImage& image, ImageAccess access);
  void unbindImages();

  /// Runs groupsX x groupsY x groupsZ work groups of the enabled program.
  void dispatchCompute(int groupsX, int groupsY, int groupsZ);

private:
  struct Token {
    explicit Token() = default;
  };

public:
  Program(Token, std::string name, std::string text); ///< for the create functions alone

private:
  std::string generatedText() const;
  bool hasAllDefinitions() const;
  bool build();
  void requireBuilt();
  int uniformLocation(const std::string& name);

  std::string m_name;
  std::string m_text;
  std::map<std::string, std::string> m_includes; ///< include name to its text; empty until defined
  unsigned m_program = 0;
  bool m_enabled = false;
  std::vector<std::string> m_boundImages; ///< the index is the image unit
};

} // namespace Kelvaris::GL
