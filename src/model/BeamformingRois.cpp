#include "model/BeamformingRois.h"

#include "Core/Properties.h"
#include "model/PropertyReading.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Kelvaris::US {

const Geometry::Polygon2D& BeamformingRois::roi(int index) const {
  if (index < 0 || index >= size()) throw std::invalid_argument("Index out of range");
  return m_rois[static_cast<std::size_t>(index)];
}

Geometry::Polygon2D& BeamformingRois::roi(int index) {
  return const_cast<Geometry::Polygon2D&>(std::as_const(*this).roi(index));
}

void BeamformingRois::configure(const Properties* properties) {
  if (!properties) return;
  const std::vector<const Properties*> stored = properties->allSubProperties("rois");
  if (stored.empty()) return;
  std::vector<Geometry::Polygon2D> rois;
  for (const Properties* roi : stored) {
    std::vector<Eigen::Vector2d> points;
    if (readIfPresent(*roi, "points", points)) rois.emplace_back(points);
  }
  if (rois.size() != stored.size()) throw std::runtime_error("Failed to read all ROIs from properties");
  m_rois = std::move(rois);
}

void BeamformingRois::configuration(Properties* properties) const {
  if (!properties) return;
  properties->removeSubProperties("rois");
  for (const Geometry::Polygon2D& roi : m_rois)
    properties->addSubProperties("rois").setParam("points", roi.points());
}

bool BeamformingRois::operator==(const BeamformingRois& other) const {
  return std::equal(m_rois.begin(), m_rois.end(), other.m_rois.begin(), other.m_rois.end(),
                    [](const auto& a, const auto& b) { return a.isEquivalent(b); });
}

} // namespace Kelvaris::US
