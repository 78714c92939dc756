#include "US/UltrasoundSweep.h"

namespace Kelvaris::US {

std::unique_ptr<SharedImageSet> UltrasoundSweep::clone(int option) const {
  auto copy = std::make_unique<UltrasoundSweep>();
  cloneInto(*copy, option);
  if (m_geometry) copy->setFrameGeometry(*m_geometry);
  return copy;
}

} // namespace Kelvaris::US
