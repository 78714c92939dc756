#include "viewer/view/LevelQuantizer.h"

#include <cmath>

namespace Kelvaris::Viewer {

DecibelQuantizer::DecibelQuantizer(const DisplayMapping& mapping) : m_from{} {
  for (std::size_t level = 1; level < m_from.size(); ++level)
    m_from[level] = std::pow(10.0, 0.1 * (mapping.low + (static_cast<double>(level) - 0.5) * mapping.width() / 255.0));
  m_firstBucket = bucketOf(m_from[1]);
  const std::int64_t last = bucketOf(m_from[255]);
  unsigned level = 0;
  for (std::int64_t bucket = m_firstBucket; bucket <= last; ++bucket) {
    const std::int64_t bits = bucket << kDroppedBits;
    double least;
    std::memcpy(&least, &bits, sizeof least);
    while (level < 255 && least >= m_from[level + 1])
      ++level;
    m_levels.push_back(static_cast<unsigned char>(level));
  }
}

} // namespace Kelvaris::Viewer
