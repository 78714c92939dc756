#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace Kelvaris {

/// Owned bytes.
class ByteBuffer {
public:
  ByteBuffer() = default;
  explicit ByteBuffer(std::size_t size) : m_bytes(size) {}

  char* data() { return m_bytes.data(); }
  const char* data() const { return m_bytes.data(); }
  std::size_t size() const { return m_bytes.size(); }
  std::string_view text() const { return {m_bytes.data(), m_bytes.size()}; }
  bool operator==(const ByteBuffer&) const = default;

private:
  std::vector<char> m_bytes;
};

/// Bytes of somebody else, who must outlive the view.
class ByteBufferView {
public:
  ByteBufferView(const char* data, std::size_t size) : m_data(data), m_size(size) {}
  ByteBufferView(const ByteBuffer& buffer)
      : ByteBufferView(buffer.data(), buffer.size()) {} // NOLINT: a buffer reads as its view

  const char* data() const { return m_data; }
  std::size_t size() const { return m_size; }
  ByteBuffer copy() const;

private:
  const char* m_data;
  std::size_t m_size;
};

} // namespace Kelvaris
