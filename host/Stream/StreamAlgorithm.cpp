#include "Stream/StreamAlgorithm.h"

#include <utility>

namespace Kelvaris {

StreamAlgorithm::StreamAlgorithm(std::unique_ptr<Stream> stream) : m_stream(stream.get()), m_owned(std::move(stream)) {
  if (m_stream) m_closedConnection = m_stream->closedSignal.connect([this] { m_stream = nullptr; });
}

OwningDataList StreamAlgorithm::takeOutput() {
  OwningDataList output;
  if (m_owned) output.add(std::move(m_owned));
  return output;
}

} // namespace Kelvaris
