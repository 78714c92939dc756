#pragma once

#include "Lib/DataComponent.h"
#include "US/FrameGeometry.h"

#include <memory>

namespace Kelvaris::US {

/// The data component that gives an image its frame geometry. It owns the geometry; a copy has a copy of it.
class FrameGeometryMetadata : public DataComponent<FrameGeometryMetadata> {
public:
  /// Without a geometry.
  FrameGeometryMetadata() = default;
  explicit FrameGeometryMetadata(std::unique_ptr<FrameGeometry> geometry) : m_geometry(std::move(geometry)) {}
  explicit FrameGeometryMetadata(const FrameGeometry& geometry) : m_geometry(geometry.clone()) {}
  FrameGeometryMetadata(const FrameGeometryMetadata& other);
  FrameGeometryMetadata& operator=(const FrameGeometryMetadata& other);
  FrameGeometryMetadata(FrameGeometryMetadata&&) = default;
  FrameGeometryMetadata& operator=(FrameGeometryMetadata&&) = default;

  std::string id() const override { return "FrameGeometryMetadata"; }

  /// May be null.
  const FrameGeometry* frameGeometry() const { return m_geometry.get(); }
  FrameGeometry* frameGeometry() { return m_geometry.get(); }
  /// Stores a copy.
  void setFrameGeometry(const FrameGeometry& geometry) { m_geometry = geometry.clone(); }
  /// Takes ownership; null removes the geometry.
  void setFrameGeometry(std::unique_ptr<FrameGeometry> geometry) { m_geometry = std::move(geometry); }

  /// True if both have no geometry, or both one with exactly the same values, and image descriptors that agree.
  bool operator==(const FrameGeometryMetadata& other) const;

  /// Replaces the geometry by the stored one. Empty properties, the stored form of no geometry, leave it as it is; so
  /// does an incomplete or unreadable geometry, with an error in the log.
  void configure(const Properties* properties) override;
  /// Writes the geometry; nothing without one.
  void configuration(Properties* properties) const override;

private:
  std::unique_ptr<FrameGeometry> m_geometry;
};

} // namespace Kelvaris::US
