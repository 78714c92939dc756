#include "viewer/StreamCapture.h"

#include <fmt/format.h>

#include <exception>
#include <utility>
#include <vector>

namespace Kelvaris::Viewer {

StreamCapture::StreamCapture(ImageStream& stream, int emissions, std::size_t maxBytes, std::function<void()> changed)
    : m_limit(emissions), m_maxBytes(maxBytes), m_images(std::make_unique<SharedImageSet>()) {
  m_closed = stream.closedSignal.connectBlocking([this, changed] {
    {
      const std::scoped_lock lock(m_mutex);
      m_complete = true;
    }
    changed();
  });
  m_connection = stream.dataSignal.connectBlocking([this, changed](const std::shared_ptr<const StreamData>& data) {
    const auto* emission = dynamic_cast<const ImageStreamData*>(data.get());
    if (!emission || emission->size() == 0) return;
    {
      const std::scoped_lock lock(m_mutex);
      if (m_complete) return;
      try {
        take(*emission);
      } catch (const std::exception& error) {
        m_problem = fmt::format("The recording ends early: {}", error.what());
        m_complete = true;
      }
    }
    changed();
  });
}

/// With the mutex held. Throws what images throw that can't be brought to main memory.
void StreamCapture::take(const ImageStreamData& emission) {
  const SharedImageSet& set = *emission.images();
  std::vector<std::shared_ptr<SharedImage>> images;
  std::size_t bytes = 0;
  for (int i = 0; i < set.size(); ++i) {
    std::shared_ptr<MemImage> pixels = set.get(i).temporaryMem();
    bytes += pixels->byteSize();
    images.push_back(set.get(i).clone(4)); // only in main memory, whatever forms the stream's image has
    images.back()->assign(std::move(pixels));
  }
  if (m_bytes + bytes > m_maxBytes) {
    m_problem = fmt::format("The recording ends after {} emissions: it takes {} MB of memory, {} are the limit",
                            m_emissions, m_bytes / 1'000'000, m_maxBytes / 1'000'000);
    m_complete = true;
    return;
  }
  if (m_emissions == 0) m_images = set.clone(3);
  for (int i = 0; i < set.size(); ++i) {
    m_images->elementwiseComponents().components(m_images->size()) = set.elementwiseComponents().components(i);
    m_images->add(std::move(images[static_cast<std::size_t>(i)]), static_cast<double>(emission.timestampDevice()));
  }
  m_bytes += bytes;
  ++m_emissions;
  m_complete = m_limit > 0 && m_emissions == m_limit;
}

int StreamCapture::emissions() const {
  const std::scoped_lock lock(m_mutex);
  return m_emissions;
}

bool StreamCapture::isComplete() const {
  const std::scoped_lock lock(m_mutex);
  return m_complete;
}

std::string StreamCapture::problem() const {
  const std::scoped_lock lock(m_mutex);
  return m_problem;
}

std::unique_ptr<SharedImageSet> StreamCapture::finish() {
  m_connection.disconnect();
  m_closed.disconnect();
  return std::move(m_images);
}

} // namespace Kelvaris::Viewer
