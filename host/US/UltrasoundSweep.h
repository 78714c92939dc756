#pragma once

#include "Lib/SharedImageSet.h"
#include "US/FrameGeometry.h"

#include <memory>

namespace Kelvaris::US {

/// Images of one probe with one frame geometry for all of them.
class UltrasoundSweep : public SharedImageSet {
public:
  UltrasoundSweep() { setModality(Ultrasound); }

  /// May be null.
  const FrameGeometry* frameGeometry() const { return m_geometry.get(); }
  /// Stores a copy.
  void setFrameGeometry(const FrameGeometry& geometry) { m_geometry = geometry.clone(); }

  /// As SharedImageSet::clone; the result is a sweep with a copy of the geometry.
  std::unique_ptr<SharedImageSet> clone(int option) const override;

private:
  std::unique_ptr<FrameGeometry> m_geometry;
};

} // namespace Kelvaris::US
