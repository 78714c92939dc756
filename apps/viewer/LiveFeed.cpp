#include "viewer/LiveFeed.h"

#include "Core/Log.h"
#include "GL/ContextManager.h"
#include "GL/Program.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Kelvaris::Viewer {
namespace {

constexpr std::chrono::seconds kWindow{1};

void bringToMemory(const SharedImageSet& images) {
  for (int i = 0; i < images.size(); ++i)
    images.get(i).mem();
}

} // namespace

LiveFeed::LiveFeed(ImageStream& stream, QObject* parent) : QObject(parent), m_thread([this] { run(); }) {
  m_connection = stream.dataSignal.connectBlocking([this](const std::shared_ptr<const StreamData>& data) {
    const auto* images = dynamic_cast<const ImageStreamData*>(data.get());
    if (!images || images->size() == 0) return;
    try {
      take(*images);
    } catch (const std::exception& error) { // for want of memory; the stream must not see it
      Log::error("LiveFeed", "An emission isn't shown: {}", error.what());
    }
  });
}

LiveFeed::~LiveFeed() {
  m_connection.disconnect();
  {
    const std::scoped_lock lock(m_mutex);
    m_ending = true;
  }
  m_wakeUp.notify_one();
  m_thread.join();
}

void LiveFeed::take(const ImageStreamData& data) {
  Emission emission{data.shallowCloneToSharedImageSet(), nullptr};
  if (data.containsGlImage() && GL::ContextManager::hasCurrent()) {
    emission.drawn = std::make_shared<GL::SyncObject>();
    GL::flush();
  }
  const auto now = Clock::now();
  {
    const std::scoped_lock lock(m_mutex);
    ++m_received;
    m_arrivals.push_back(now);
    while (m_arrivals.size() > 2 && m_arrivals.front() + kWindow < now)
      m_arrivals.pop_front();
    if (m_newest) ++m_dropped;
    m_newest = std::move(emission);
  }
  m_wakeUp.notify_one();
}

void LiveFeed::run() {
  bool hasComplained = false;
  std::unique_lock lock(m_mutex);
  for (;;) {
    m_wakeUp.wait(lock, [this] { return m_ending || (m_newest && !m_posted); });
    if (m_ending) return;
    const Emission emission = *std::exchange(m_newest, std::nullopt);
    lock.unlock();
    bool readable = true;
    try {
      if (emission.drawn) emission.drawn->wait();
      bringToMemory(*emission.images);
    } catch (const std::exception& error) {
      readable = false;
      if (!std::exchange(hasComplained, true))
        Log::error("LiveFeed", "Images of the stream can't be shown: {}", error.what());
    }
    lock.lock();
    if (readable) {
      m_posted = emission.images;
      QMetaObject::invokeMethod(
          this, [this] { deliver(); }, Qt::QueuedConnection);
    } else {
      ++m_dropped;
    }
  }
}

void LiveFeed::deliver() {
  std::shared_ptr<const SharedImageSet> images;
  {
    const std::scoped_lock lock(m_mutex);
    images = std::exchange(m_posted, nullptr);
    ++m_shown;
  }
  m_wakeUp.notify_one();
  Q_EMIT arrived(std::move(images));
}

double LiveFeed::frameRate() const {
  const std::scoped_lock lock(m_mutex);
  if (m_arrivals.size() < 2) return 0.0;
  const auto seconds = [](Clock::duration duration) { return std::chrono::duration<double>(duration).count(); };
  const double span = seconds(m_arrivals.back() - m_arrivals.front());
  const double interval = span / static_cast<double>(m_arrivals.size() - 1);
  // A stream that has stopped has no rate.
  if (!(interval > 0.0) || seconds(Clock::now() - m_arrivals.back()) > std::max(1.0, 2.0 * interval)) return 0.0;
  return 1.0 / interval;
}

long LiveFeed::received() const {
  const std::scoped_lock lock(m_mutex);
  return m_received;
}

long LiveFeed::shown() const {
  const std::scoped_lock lock(m_mutex);
  return m_shown;
}

long LiveFeed::dropped() const {
  const std::scoped_lock lock(m_mutex);
  return m_dropped;
}

} // namespace Kelvaris::Viewer
