#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Kelvaris::GL {

inline constexpr unsigned kStaticDraw = 35044; ///< GL_STATIC_DRAW: written once, read by many shaders

/// Values in OpenGL's memory that shaders read, and may write, as the storage buffer that Program::bindStorageBuffer
/// gives them to: packed (std430), 4 bytes each. Works on any thread: every operation makes a context current for
/// itself, and throws GL::Error if there is none or a call fails.
class ShaderStorageBuffer {
public:
  /// Copies the values; none at all are fine. Throws GL::Error if they are more than maxByteSize().
  explicit ShaderStorageBuffer(std::span<const std::int32_t> values, unsigned usage = kStaticDraw);
  ~ShaderStorageBuffer();
  ShaderStorageBuffer(const ShaderStorageBuffer&) = delete;
  ShaderStorageBuffer& operator=(const ShaderStorageBuffer&) = delete;

  /// The most that a shader can reach of one buffer.
  static std::size_t maxByteSize();

  std::size_t size() const { return m_size; } ///< values
  /// OpenGL's name of the buffer.
  unsigned buffer() const { return m_buffer; }

private:
  std::size_t m_size;
  unsigned m_buffer = 0;
};

} // namespace Kelvaris::GL
