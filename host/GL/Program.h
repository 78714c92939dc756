#pragma once

#include <Eigen/Core>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Kelvaris {
class GlImage;
}

namespace Kelvaris::GL {

class AbstractInclude;
class ShaderStorageBuffer;

/// When a shader is compiled: at once, or as soon as its abstract includes have definitions, at the latest at its first
/// use.
enum class CompilationMode : int { Immediate = 0, Deferred = 1 };

/// What a shader does with an image that is bound to it (GL_READ_ONLY, GL_WRITE_ONLY, GL_READ_WRITE).
enum class ImageAccess : unsigned { ReadOnly = 35000, WriteOnly = 35001, ReadWrite = 35002 };

inline constexpr unsigned kImageAccessBarrier = 32;  ///< GL_SHADER_IMAGE_ACCESS_BARRIER_BIT
inline constexpr unsigned kAllBarriers = 0xFFFFFFFF; ///< GL_ALL_BARRIER_BITS

/// Orders what shaders write before the uses that `barriers` name, in the calling thread's context.
void memoryBarrier(unsigned barriers);
/// Waits until all work issued in the calling thread's context is complete and visible to every other context.
void finish();
/// Has all work issued in the calling thread's context done in the background, so that others can wait for it.
void flush();

/// How a sampler reads between texel centres and outside of the texture.
struct Sampling {
  unsigned filter = 9728;                                ///< GL_NEAREST; GL_LINEAR is 9729
  unsigned wrap = 33071;                                 ///< GL_CLAMP_TO_EDGE; GL_CLAMP_TO_BORDER is 33069
  Eigen::Vector4f borderColor = Eigen::Vector4f::Zero(); ///< what GL_CLAMP_TO_BORDER reads outside
};

/// A compute program made from one GLSL text; an ImageProgram is its counterpart for fragments. The text may hold lines
/// `#abstract_include NAME`: each is replaced by the source of the definition given under that name before the text is
/// compiled. A line `#abstract_include NAME optional` vanishes as long as there is no definition; with one, the
/// source has `#define HAS_NAME` in front (NAME in upper case).
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

  virtual ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Gives the include `name` its text. Once all have one, the program is compiled, unless nothing changed; its
  /// uniforms are then to be set anew. False if the shader has no such include or can't be compiled; the log says why.
  bool addAbstractIncludeDefinition(const AbstractInclude& include, const std::string& name);
  /// Takes the definition of an optional include away again, if it has one.
  void removeAbstractIncludeDefinition(const std::string& name);
  /// A line behind the #version line, "#define NAME ..." or "#undef NAME"; it replaces an earlier one for the same
  /// NAME. What changes the text makes the program be compiled anew at its next use; its uniforms are then to be set
  /// anew.
  void addDefine(const std::string& line);

  /// Makes this the program in use; disable() makes it none, and lets go of the textures, images and buffers bound to
  /// it.
  void enable();
  void disable();

  /// Sets a uniform. One that the shader doesn't use is ignored.
  void setUniform(const std::string& name, int value);
  void setUniform(const std::string& name, float value);
  void setUniform(const std::string& name, const Eigen::Vector2f& value);
  void setUniform(const std::string& name, const Eigen::Vector3f& value);
  void setUniform(const std::string& name, const Eigen::Vector4f& value);
  void setUniform(const std::string& name, const Eigen::Vector3i& value);
  void setUniform(const std::string& name, const Eigen::Matrix4f& value);

  /// Binds the image's texture, all slices, to the image uniform `name`.
  void bindImage(const std::string& name, const GlImage& image, ImageAccess access);
  void unbindImages();
  /// Binds the image's texture to the sampler uniform `name` (sampler2D, or sampler2DArray for several slices) until
  /// disable().
  void bindTexture(const std::string& name, const GlImage& image, const Sampling& sampling = {});

  /// Binds the buffer to the shader's storage block `name`.
  void bindStorageBuffer(const std::string& name, const ShaderStorageBuffer& buffer);
  void unbindStorageBuffers();

  /// Runs groupsX x groupsY x groupsZ work groups of the enabled program.
  void dispatchCompute(int groupsX, int groupsY, int groupsZ);

protected:
  struct Token {
    explicit Token() = default;
  };
  /// The text of a resource; nothing, with a logged error, if it is missing.
  static std::optional<std::string> resourceText(const std::string& resource);
  /// The text with the lines `defines` behind its #version line.
  static std::string withDefines(const std::string& text, const std::string& defines);

  bool build();
  /// Throws GL::Error unless the program is built, or can be now, and enabled.
  void requireEnabled();

public:
  /// For the create functions alone. `text` is that of the stage `stage` (GL_COMPUTE_SHADER, GL_FRAGMENT_SHADER), which
  /// follows on `vertexText`, if that isn't empty.
  Program(Token, std::string name, unsigned stage, std::string text, std::string vertexText = {});

private:
  struct Include {
    bool optional = false;
    std::string text; ///< empty until defined
  };
  struct BoundTexture {
    std::string name;
    unsigned sampler;
  };

  std::string generatedText() const;
  bool hasAllDefinitions() const;
  void setText(std::string& part, std::string text);
  void requireBuilt();
  void unbindTextures();
  int uniformLocation(const std::string& name);

  std::string m_name;
  unsigned m_stage;
  std::string m_text;
  std::string m_vertexText;
  std::map<std::string, std::string> m_defines; ///< macro name to the whole line
  std::map<std::string, Include> m_includes;
  unsigned m_program = 0;
  bool m_enabled = false;
  std::vector<std::string> m_boundImages;    ///< the index is the image unit
  std::vector<BoundTexture> m_boundTextures; ///< the index is the texture unit
  std::vector<std::string> m_boundBuffers;   ///< the index is the storage buffer's binding point
};

} // namespace Kelvaris::GL
