#pragma once

#include <cmath>

namespace Kelvaris {

/// Marks pixels as invalid by a value that they carry: NaN in float images, -32768 in 16-bit ones. A pixel of several
/// components is masked when any of them carries the value.
class IntensityMask {
public:
  IntensityMask(int pixelType, double value) : m_pixelType(pixelType), m_value(value) {}

  int pixelType() const { return m_pixelType; }
  double value() const { return m_value; }
  bool isMasked(double sample) const { return sample == m_value || (std::isnan(sample) && std::isnan(m_value)); }

private:
  int m_pixelType;
  double m_value;
};

} // namespace Kelvaris
