#include "model/FrameAcquisition.h"

#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"
#include "model/FrameColumnSearch.h"
#include "model/TransmitTransitTime.h"

#include <algorithm>
#include <cmath>

namespace Kelvaris::US {
namespace {

constexpr std::size_t kParallelSearches = 1 << 13; // a few milliseconds; less isn't worth waking threads

/// Distance in mm from the point to the element farthest from it.
double farthestElement(const Eigen::Vector3d& point, const std::vector<Eigen::Vector3d>& elements) {
  double squared = 0.0;
  for (const Eigen::Vector3d& element : elements)
    squared = std::max(squared, (point - element).squaredNorm());
  return std::sqrt(squared);
}

Eigen::Vector3d inFrame(const Eigen::Vector2d& point) {
  return {point.x(), point.y(), 0.0};
}

} // namespace

void FrameAcquisition::fillEndTimeFocused() {
  const std::vector<Eigen::Vector3d> elements = m_transducer.elementPositions();
  const FrameGeometry& geometry = *m_frameGeometry->frameGeometry();
  const auto n = static_cast<double>(m_events.size());
  double endTime = 0.0;
  for (std::size_t i = 0; i < m_events.size(); ++i) {
    const PulseEchoEvent& event = m_events[i];
    const double column = static_cast<double>(i) / (n - 1.0); // not a number for a single event
    const Eigen::Vector3d bottom = inFrame(geometry.convertPoint({column, 1.0}, FrameGeometry::NormalizedToPhysical));
    const double echo =
        transmitTransitTime(bottom, event) + farthestElement(bottom, elements) / event.transmit.speedOfSound;
    endTime = std::max({endTime, event.receive.endTime, echo}); // which passes over an echo that isn't a number
  }
  for (PulseEchoEvent& event : m_events)
    event.receive.endTime = endTime;
}

void FrameAcquisition::fillEndTimeUltrafast() {
  const std::vector<Eigen::Vector3d> elements = m_transducer.elementPositions();
  const FrameGeometry& geometry = *m_frameGeometry->frameGeometry();
  const int numColumns = m_ultrasoundMetadata->numColumns, numRows = m_ultrasoundMetadata->numRows;
  std::vector<FrameColumnSearch> regions;
  regions.reserve(m_events.size());
  for (int i = 0; i < m_rois->size(); ++i)
    regions.emplace_back(m_rois->roi(i));

  const std::size_t numSearches = static_cast<std::size_t>(std::max(numColumns, 0)) * m_events.size();
  double endTime = 0.0;
#pragma omp parallel for schedule(static) reduction(max : endTime) if (numSearches > kParallelSearches)
  for (int x = 0; x < numColumns; ++x) {
    const double u = x / (numColumns - 1.0);
    int farthestRow = -1; // most events end in the same row of a column
    double farthest = 0.0;
    for (std::size_t i = 0; i < m_events.size(); ++i) {
      const auto hit = regions[i].lowestPoint(geometry, u, numRows);
      if (!hit) continue;
      const Eigen::Vector3d point = inFrame(hit->point);
      if (hit->row != farthestRow) {
        farthestRow = hit->row;
        farthest = farthestElement(point, elements);
      }
      const PulseEchoEvent& event = m_events[i];
      endTime = std::max(endTime, transmitTransitTime(point, event) + farthest / event.transmit.speedOfSound);
    }
  }
  for (PulseEchoEvent& event : m_events)
    event.receive.endTime = endTime;
}

} // namespace Kelvaris::US
