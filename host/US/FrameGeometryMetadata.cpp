#include "US/FrameGeometryMetadata.h"

#include "Core/Properties.h"
#include "US/FrameGeometryFactory.h"

namespace Kelvaris::US {

FrameGeometryMetadata::FrameGeometryMetadata(const FrameGeometryMetadata& other)
    : DataComponent(other), m_geometry(other.m_geometry ? other.m_geometry->clone() : nullptr) {}

FrameGeometryMetadata& FrameGeometryMetadata::operator=(const FrameGeometryMetadata& other) {
  m_geometry = other.m_geometry ? other.m_geometry->clone() : nullptr;
  return *this;
}

bool FrameGeometryMetadata::operator==(const FrameGeometryMetadata& other) const {
  if (!m_geometry || !other.m_geometry) return !m_geometry && !other.m_geometry;
  return m_geometry->isApprox(*other.m_geometry, 0.0, true);
}

void FrameGeometryMetadata::configure(const Properties* properties) {
  if (!properties || properties->empty()) return;
  if (std::unique_ptr<FrameGeometry> stored = readFrameGeometry(*properties)) m_geometry = std::move(stored);
}

void FrameGeometryMetadata::configuration(Properties* properties) const {
  if (m_geometry) m_geometry->configuration(properties);
}

} // namespace Kelvaris::US
