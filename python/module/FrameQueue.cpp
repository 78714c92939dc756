#include "module/FrameQueue.h"

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

namespace Kelvaris::Python {
namespace {

bool isLive(Stream::State state) {
  return state == Stream::State::Running || state == Stream::State::Paused;
}

} // namespace

FrameQueue::FrameQueue(std::shared_ptr<Stream> stream, int capacity)
    : m_capacity(static_cast<std::size_t>(capacity)), m_stream(std::move(stream)) {
  if (capacity < 1)
    throw std::invalid_argument(fmt::format("A capacity of {} holds no frame; expected 1 or more", capacity));
  m_data = m_stream->dataSignal.connectBlocking([this](const std::shared_ptr<const StreamData>& data) { push(data); });
  m_state = m_stream->stateChanged.connectBlocking([this](Stream::State state) {
    if (!isLive(state)) end();
  });
}

FrameQueue::Wait FrameQueue::take(std::shared_ptr<const StreamData>& data,
                                  std::chrono::steady_clock::time_point until) {
  std::unique_lock lock(m_mutex);
  if (!m_changed.wait_until(lock, until, [&] { return m_ended || !m_queue.empty(); })) return Wait::TimedOut;
  if (m_queue.empty()) return Wait::Ended;
  data = std::move(m_queue.front());
  m_queue.pop_front();
  return Wait::Data;
}

void FrameQueue::close() {
  const std::scoped_lock closing(m_closing);
  m_data.disconnect();
  m_state.disconnect();
  {
    const std::scoped_lock lock(m_mutex);
    m_queue.clear();
  }
  end();
  m_stream.reset();
}

std::size_t FrameQueue::dropped() const {
  const std::scoped_lock lock(m_mutex);
  return m_dropped;
}

void FrameQueue::push(const std::shared_ptr<const StreamData>& data) {
  std::shared_ptr<const StreamData> oldest; // goes without the lock
  {
    const std::scoped_lock lock(m_mutex);
    if (m_ended) return;
    if (m_queue.size() == m_capacity) {
      oldest = std::move(m_queue.front());
      m_queue.pop_front();
      ++m_dropped;
    }
    m_queue.push_back(data);
  }
  m_changed.notify_one();
}

void FrameQueue::end() {
  {
    const std::scoped_lock lock(m_mutex);
    m_ended = true;
  }
  m_changed.notify_all();
}

} // namespace Kelvaris::Python
