#include "streaming/SingleImageAlgorithmExecutorStream.h"

#include "Core/Log.h"

#include <exception>

namespace Kelvaris::US {

SingleImageAlgorithmExecutorStream::SingleImageAlgorithmExecutorStream(bool topDown, Kind kind, ImageStream* input)
    : ImageStream({}), m_topDown(topDown), m_input(input) {
  setKind(kind);
  if (input)
    m_inputGone = input->closedSignal.connectBlocking([this] {
      const std::scoped_lock lock(m_mutex);
      m_input = nullptr;
    });
}

SingleImageAlgorithmExecutorStream::~SingleImageAlgorithmExecutorStream() {
  try {
    closeAsync().get();
  } catch (const std::exception& error) {
    Log::error("SingleImageAlgorithmExecutorStream", "The stream ends, though its input failed to stop: {}",
               error.what());
  } catch (...) {
    Log::error("SingleImageAlgorithmExecutorStream", "The stream ends, though its input failed to stop");
  }
  goneSignal.emitSignal();
}

bool SingleImageAlgorithmExecutorStream::supportsPausing() const {
  const std::scoped_lock lock(m_mutex);
  return m_input && m_input->supportsPausing();
}

bool SingleImageAlgorithmExecutorStream::forward(std::shared_future<bool> (Stream::*command)(), bool withoutInput) {
  std::shared_future<bool> result;
  {
    const std::scoped_lock lock(m_mutex);
    if (!m_input) return withoutInput;
    result = (m_input->*command)();
  }
  return result.get();
}

} // namespace Kelvaris::US
