#include "Core/ByteBuffer.h"

#include <algorithm>

namespace Kelvaris {

ByteBuffer ByteBufferView::copy() const {
  ByteBuffer buffer(m_size);
  std::copy_n(m_data, m_size, buffer.data());
  return buffer;
}

} // namespace Kelvaris
