#include "viewer/BackgroundThread.h"

#include <utility>

namespace Kelvaris::Viewer {

BackgroundThread::BackgroundThread() : m_thread([this] { run(); }) {}

BackgroundThread::~BackgroundThread() {
  {
    const std::scoped_lock lock(m_mutex);
    m_ending = true;
  }
  m_wakeUp.notify_one();
  m_thread.join();
}

void BackgroundThread::post(std::function<void()> job) {
  {
    const std::scoped_lock lock(m_mutex);
    m_jobs.push_back(std::move(job));
  }
  m_wakeUp.notify_one();
}

void BackgroundThread::run() {
  std::unique_lock lock(m_mutex);
  for (;;) {
    m_wakeUp.wait(lock, [this] { return m_ending || !m_jobs.empty(); });
    if (m_ending) return;
    std::function<void()> job = std::move(m_jobs.front());
    m_jobs.pop_front();
    lock.unlock();
    job();
    job = nullptr; // with what it holds
    lock.lock();
  }
}

} // namespace Kelvaris::Viewer
