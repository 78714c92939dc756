#pragma once

#include "Core/Signal.h"
#include "Stream/ImageStream.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace Kelvaris::Viewer {

/// Collects what a live stream emits, in main memory.
class StreamCapture {
public:
  /// Listens from now on to the next `emissions` (0: to all), as long as they take no more than `maxBytes`. `changed`
  /// is called on the thread that emits, after each emission that was taken and when the end has come. The stream may
  /// go away first.
  StreamCapture(ImageStream& stream, int emissions, std::size_t maxBytes, std::function<void()> changed);

  int emissions() const;
  /// True if nothing more will be taken.
  bool isComplete() const;
  /// Why it is complete before all emissions have come; empty if it isn't. For the user.
  std::string problem() const;
  /// Stops listening and hands over all images of all emissions, with the timestamps of the device. Set-wide state is
  /// that of the first emission.
  std::unique_ptr<SharedImageSet> finish();

private:
  void take(const ImageStreamData& emission);

  int m_limit;
  std::size_t m_maxBytes;
  mutable std::mutex m_mutex; ///< guards these five
  std::unique_ptr<SharedImageSet> m_images;
  int m_emissions = 0;
  std::size_t m_bytes = 0;
  bool m_complete = false;
  std::string m_problem;
  BlockingConnection m_connection, m_closed;
};

} // namespace Kelvaris::Viewer
