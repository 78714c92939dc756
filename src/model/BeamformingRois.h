#pragma once

#include "Core/Polygon2D.h"
#include "Lib/DataComponent.h"

#include <string>
#include <vector>

namespace Kelvaris::US {

/// One region per pulse-echo event, in the order of the events: where in the image plane that event contributes, in
/// frame coordinates (mm). A region of exactly two vertices is a line (a scan line from the beam's origin to its end),
/// any other is an area. All regions of one object should have the same form; the beamformer refuses a mixture.
///
/// Part of a frame acquisition, or a component of its own that overrides the acquisition's regions.
class BeamformingRois : public DataComponent<BeamformingRois> {
public:
  int size() const { return static_cast<int>(m_rois.size()); }
  /// Throws std::invalid_argument unless 0 <= index < size().
  const Geometry::Polygon2D& roi(int index) const;
  Geometry::Polygon2D& roi(int index);
  void add(const Geometry::Polygon2D& roi) { m_rois.push_back(roi); }

  std::string id() const override { return "BeamformingRois"; }
  /// Replaces all regions by those of the sub-properties "rois", each with its vertices under "points"; without any
  /// nothing changes. Throws std::runtime_error, and changes nothing, if vertices are there that can't be read.
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;

  /// Equivalent regions in the same order.
  bool operator==(const BeamformingRois& other) const;
  bool operator!=(const BeamformingRois& other) const { return !(*this == other); }

private:
  std::vector<Geometry::Polygon2D> m_rois;
};

} // namespace Kelvaris::US
