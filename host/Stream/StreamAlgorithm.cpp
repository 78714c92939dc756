#include "Stream/StreamAlgorithm.h"

#include <utility>

namespace Kelvaris {

StreamAlgorithm::StreamAlgorithm(std::unique_ptr<Stream> stream) {
  replaceStream(std::move(stream));
}

void StreamAlgorithm::replaceStream(std::unique_ptr<Stream> stream) {
  m_owned.reset();
  m_stream = stream.get();
  m_owned = std::move(stream);
  m_closedConnection =
      m_owned ? m_owned->closedSignal.connect([this] { m_stream = nullptr; }) : boost::signals2::connection();
}

OwningDataList StreamAlgorithm::takeOutput() {
  OwningDataList output;
  if (m_owned) output.add(std::move(m_owned));
  return output;
}

} // namespace Kelvaris
