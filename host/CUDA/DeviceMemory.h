#pragma once

#include <cstddef>
#include <span>
#include <type_traits>
#include <utility>

namespace Kelvaris::CUDA {

/// Owns a block of the executor's memory. Not initialised. Freed blocks go back to the DeviceBufferPool while that is
/// active; work on the default stream that still uses a block comes before anything that its next owner does there.
///
/// On the CPU executor a block starts at a multiple of 64 bytes and is followed by at least 64 bytes that may be read.
class DeviceMemory {
public:
  DeviceMemory() = default;
  /// Throws CUDA::Error, with the size, if the device has not enough memory; std::bad_alloc on the CPU executor.
  explicit DeviceMemory(std::size_t bytes);
  ~DeviceMemory();
  DeviceMemory(DeviceMemory&& other) noexcept
      : m_data(std::exchange(other.m_data, nullptr)), m_size(std::exchange(other.m_size, 0)) {}
  DeviceMemory& operator=(DeviceMemory&& other) noexcept {
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
    return *this;
  }

  void* data() const { return m_data; }
  std::size_t size() const { return m_size; } ///< bytes

  /// Copies from main memory to the start of the block, and back; `bytes` must not exceed size(). Both wait for earlier
  /// work of the default stream. Throw std::out_of_range, CUDA::Error.
  void upload(const void* source, std::size_t bytes);
  void download(void* target, std::size_t bytes) const;

private:
  void* m_data = nullptr;
  std::size_t m_size = 0;
};

/// An array of values in the executor's memory, written as a whole from main memory.
template <typename T> class DeviceVector {
  static_assert(std::is_trivially_copyable_v<T>);

public:
  DeviceVector() = default;
  explicit DeviceVector(std::span<const T> values) : m_memory(values.size_bytes()), m_size(values.size()) {
    m_memory.upload(values.data(), values.size_bytes());
  }

  /// Address in the executor's memory; null if empty.
  const T* data() const { return static_cast<const T*>(m_memory.data()); }
  std::size_t size() const { return m_size; }

private:
  DeviceMemory m_memory;
  std::size_t m_size = 0;
};

} // namespace Kelvaris::CUDA
