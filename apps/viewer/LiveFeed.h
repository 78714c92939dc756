#pragma once

#include "Core/Signal.h"
#include "GL/SyncObject.h"
#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"

#include <QObject>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace Kelvaris::Viewer {

/// The newest emission of a live stream, for display. The emitting thread only hands over the images; a thread of this
/// object brings them to main memory, one emission at a time, and only when the main thread has taken the one before:
/// one that can't keep up gets the newest, and the rest are dropped. The last emission before a pause always arrives.
///
/// For the main thread. Feed and stream may end in any order.
class LiveFeed : public QObject {
  Q_OBJECT

public:
  explicit LiveFeed(ImageStream& stream, QObject* parent = nullptr);
  /// Waits until neither an emission nor a conversion is in progress.
  ~LiveFeed() override;

  /// Emissions per second, over about the last second; 0 where there is no telling.
  double frameRate() const;
  /// Emissions so far: all, those that arrived, and those that were overtaken or couldn't be read. What is left is on
  /// its way.
  long received() const;
  long shown() const;
  long dropped() const;

Q_SIGNALS:
  /// All images are in main memory.
  void arrived(std::shared_ptr<const Kelvaris::SharedImageSet> images);

private:
  using Clock = std::chrono::steady_clock;
  struct Emission {
    std::shared_ptr<const SharedImageSet> images;
    std::shared_ptr<GL::SyncObject> drawn; ///< behind the emitter's work on textures; null if there is nothing to await
  };

  void take(const ImageStreamData& data);
  void run();
  void deliver();

  mutable std::mutex m_mutex; ///< guards all down to the thread
  std::condition_variable m_wakeUp;
  std::optional<Emission> m_newest;               ///< not yet taken up by the thread
  std::shared_ptr<const SharedImageSet> m_posted; ///< not yet taken by the main thread
  bool m_ending = false;
  long m_received = 0, m_shown = 0, m_dropped = 0;
  std::deque<Clock::time_point> m_arrivals; ///< of the last second; two at least, once there are

  std::thread m_thread;
  BlockingConnection m_connection;
};

} // namespace Kelvaris::Viewer
