#include "GL/ShaderStorageBuffer.h"

#include "Core/Log.h"
#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/DriverLock.h"

#include <epoxy/gl.h>
#include <fmt/format.h>

namespace Kelvaris::GL {

ShaderStorageBuffer::ShaderStorageBuffer(std::span<const std::int32_t> values, unsigned usage) : m_size(values.size()) {
  if (const std::size_t most = maxByteSize(); values.size_bytes() > most)
    throw Error(fmt::format("A storage buffer of {} values takes {} bytes; OpenGL's largest here has {}", values.size(),
                            values.size_bytes(), most));
  const ContextManager::ActivationGuard guard;
  const DriverLock lock;
  KELVARIS_GL_CHECKED(glCreateBuffers(1, &m_buffer));
  try {
    KELVARIS_GL_CHECKED(
        glNamedBufferData(m_buffer, static_cast<GLsizeiptr>(values.size_bytes()), values.data(), usage));
  } catch (...) {
    glDeleteBuffers(1, &m_buffer);
    throw;
  }
}

ShaderStorageBuffer::~ShaderStorageBuffer() {
  try {
    const ContextManager::ActivationGuard guard;
    const DriverLock lock;
    glDeleteBuffers(1, &m_buffer);
  } catch (const Error& error) {
    Log::warning("GL.ShaderStorageBuffer", "A storage buffer can't be deleted: {}", error.what());
  }
}

std::size_t ShaderStorageBuffer::maxByteSize() {
  const ContextManager::ActivationGuard guard;
  GLint64 bytes = 0;
  KELVARIS_GL_CHECKED(glGetInteger64v(GL_MAX_SHADER_STORAGE_BLOCK_SIZE, &bytes));
  return static_cast<std::size_t>(bytes);
}

} // namespace Kelvaris::GL
