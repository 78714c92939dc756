#pragma once

#include "Core/Log.h"
#include "GL/Context.h"
#include "GL/ContextManager.h"
#include "GL/Program.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace Kelvaris {

/// A work item with the timestamps of the stream data that it came with, in milliseconds.
template <typename T> struct TimestampedPayload {
  std::uint64_t timestampDevice = 0;
  std::uint64_t timestampArrival = 0;
  std::shared_ptr<T> payload; ///< may be null
};

/// Who does the work of a BackgroundThreadQueue.
template <typename T> class BackgroundThreadConsumer {
public:
  virtual ~BackgroundThreadConsumer() = default;
  /// Called on the queue's thread, one item after the other, with no lock of the queue held. An exception ends the
  /// thread for good.
  virtual void process(TimestampedPayload<T> item) = 0;
};

/// Hands items from a producer whose time is short to one thread that works on them. The producer never waits: what the
/// consumer can't keep up with is thrown away, oldest first.
///
/// The item in progress stays at the front of the queue, and counts: with the maximum size M, a push leaves at most M
/// items in an idle queue, and at most M + 1 in a busy one. A push that finds too many in a busy queue takes the front
/// out as if it were the item in progress, even if that one has gone before. The thread, when done, takes out whatever
/// is at the front: the next in line, unprocessed, if the item in progress has gone. With M = 1:
///
///     a in progress, b waits     a b
///     push c: a goes             b c
///     a is done: b goes            c
///
/// Every item has a promise. It is fulfilled when the item has been processed, or has been dropped by a push as a
/// waiting one. It breaks if the item goes unprocessed in another way: as a waiting one at the front of a busy queue,
/// as b above, by setMaximumQueueSize(), with the queue; and by an exception while it is processed.
///
/// Any number of threads may push, and change the size. start() and stop() are for one thread at a time.
template <typename T> class BackgroundThreadQueue {
public:
  /// The consumer must outlive the queue's thread. A size below 1 counts as 1. The queue takes items from now on; they
  /// wait for start().
  BackgroundThreadQueue(BackgroundThreadConsumer<T>* consumer, int maximumQueueSize)
      : m_consumer(consumer), m_maximumQueueSize(std::max(1, maximumQueueSize)) {}
  /// Stops. Items that wait go away unprocessed.
  ~BackgroundThreadQueue() { stop(); }
  BackgroundThreadQueue(const BackgroundThreadQueue&) = delete;
  BackgroundThreadQueue& operator=(const BackgroundThreadQueue&) = delete;

  /// Starts the thread, unless it runs. With `createContext` an OpenGL context is current on it for as long as it runs;
  /// where there can't be one, the thread ends at once. Whatever ends the thread other than stop() is a logged error.
  void start(bool createContext) {
    if (!m_thread.joinable()) m_thread = std::thread([this, createContext] { run(createContext); });
  }

  /// Lets the item in progress finish and ends the thread; waiting items stay unprocessed, and further ones are
  /// refused. Does nothing before start() and on a second call. Not for the queue's own thread.
  void stop() {
    if (!m_thread.joinable()) return;
    {
      const std::scoped_lock lock(m_mutex);
      m_stopRequest = true;
    }
    m_wakeUp.notify_one();
    Log::write(Log::Trace, kCategory, "BackgroundThreadQueue waiting for processing thread to finish.");
    m_thread.join();
  }

  /// Appends the item and drops what is too much. The future is that of the item's promise; it isn't valid() if the
  /// item is refused, because its payload is null or the queue has been stopped.
  std::future<void> push(TimestampedPayload<T> item) {
    std::future<void> done;
    {
      const std::scoped_lock lock(m_mutex);
      if (m_stopRequest || !item.payload) return done;
      const int limit = m_processing ? maximumQueueSize() : maximumQueueSize() - 1;
      bool first = true;
      while (size() > limit) {
        if (!(first && m_processing)) m_tasks.front().promise->set_value();
        m_tasks.pop_front();
        first = false;
      }
      m_tasks.push_back({std::move(item), std::make_shared<std::promise<void>>()});
      done = m_tasks.back().promise->get_future();
    }
    m_wakeUp.notify_one();
    return done;
  }

  int maximumQueueSize() const { return m_maximumQueueSize; }
  /// A size below 1 counts as 1. Items beyond it go, the oldest first, the one in progress among them.
  void setMaximumQueueSize(int size) {
    if (size == m_maximumQueueSize) return;
    const std::scoped_lock lock(m_mutex);
    m_maximumQueueSize = std::max(1, size);
    while (this->size() > m_maximumQueueSize)
      m_tasks.pop_front();
  }

  /// True if no item waits or is in progress, apart from one in progress that has been taken out of the queue.
  bool isEmpty() const {
    const std::scoped_lock lock(m_mutex);
    return m_tasks.empty();
  }
  /// True once the thread has ended, by stop() or by an exception: nothing that waits will be processed any more.
  bool hasEnded() const {
    const std::scoped_lock lock(m_mutex);
    return m_ended;
  }
  /// Has the thread look again whether there is something to do.
  void wakeUp() { m_wakeUp.notify_one(); }

private:
  struct Task {
    TimestampedPayload<T> item;
    std::shared_ptr<std::promise<void>> promise;
  };

  static constexpr const char* kCategory = "BackgroundThreadQueue";

  int size() const { return static_cast<int>(m_tasks.size()); }

  void run(bool createContext) {
    try {
      work(createContext);
    } catch (const std::exception& error) {
      Log::error(kCategory, "An unexpected exception occurred while running the processing thread: {}", error.what());
    } catch (...) {
      Log::error(kCategory, "An unexpected exception occurred while running the processing thread.");
    }
    const std::scoped_lock lock(m_mutex);
    m_context.reset();
    m_ended = true;
  }

  void work(bool createContext) {
    std::unique_lock lock(m_mutex);
    if (createContext) m_context = GL::ContextManager::get().createContext();
    while (true) {
      m_wakeUp.wait(lock, [this] { return m_stopRequest || !m_tasks.empty(); });
      if (m_stopRequest) return;
      m_processing = true;
      Task task = m_tasks.front();
      lock.unlock();
      m_consumer->process(std::move(task.item));
      task.promise->set_value();
      if (m_context) GL::flush();
      lock.lock();
      m_processing = false;
      if (!m_tasks.empty()) m_tasks.pop_front();
    }
  }

  std::deque<Task> m_tasks; ///< oldest first
  bool m_processing = false;
  BackgroundThreadConsumer<T>* m_consumer;
  std::atomic<int> m_maximumQueueSize; ///< written under the mutex
  std::thread m_thread;
  std::condition_variable m_wakeUp;
  bool m_stopRequest = false;
  std::unique_ptr<GL::Context> m_context; ///< of the thread
  mutable std::mutex m_mutex;             ///< guards all of these but the thread
  bool m_ended = false;
};

} // namespace Kelvaris
