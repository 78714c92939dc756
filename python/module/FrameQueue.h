#pragma once

#include "Core/Signal.h"
#include "Stream/Stream.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>

namespace Kelvaris::Python {

/// What a stream emits, for a consumer that may be slower: beyond the capacity, the oldest go. Ends when the stream
/// leaves running and paused, goes away, or close() is called; what is queued by then is still given out, but for
/// close(). Works without Python's lock, on all threads.
class FrameQueue {
public:
  /// Throws std::invalid_argument for a capacity below 1.
  FrameQueue(std::shared_ptr<Stream> stream, int capacity);
  ~FrameQueue() { close(); }
  FrameQueue(const FrameQueue&) = delete;
  FrameQueue& operator=(const FrameQueue&) = delete;

  enum class Wait { Data, TimedOut, Ended };
  /// Waits until there is data, the end, or `until`; takes the data.
  Wait take(std::shared_ptr<const StreamData>& data, std::chrono::steady_clock::time_point until);
  /// Lets go of the stream; idempotent. After it no slot runs.
  void close();

  std::size_t dropped() const;
  std::size_t capacity() const { return m_capacity; }

private:
  void push(const std::shared_ptr<const StreamData>& data);
  void end();

  const std::size_t m_capacity;
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<std::shared_ptr<const StreamData>> m_queue;
  std::size_t m_dropped = 0;
  bool m_ended = false;

  std::mutex m_closing;
  std::shared_ptr<Stream> m_stream;
  BlockingConnection m_data, m_state;
};

} // namespace Kelvaris::Python
