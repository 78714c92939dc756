#pragma once

#include "Lib/Mask.h"

#include <cmath>

namespace Kelvaris {

/// Marks pixels as invalid by a stored value that they carry: NaN in float images, -32768 in 16-bit ones. A pixel of
/// several components is masked when any of them carries the value.
class IntensityMask : public Mask {
public:
  IntensityMask(int pixelType, double value) : m_pixelType(pixelType), m_value(value) {}

  int pixelType() const { return m_pixelType; }
  double value() const { return m_value; }
  bool isMasked(double sample) const { return sample == m_value || (std::isnan(sample) && std::isnan(m_value)); }

  int deviceStrategy() const override { return 2; }
  void evaluate(const MemImage& image, int x, int y, int z, int count, unsigned char* valid) const override;

private:
  int m_pixelType;
  double m_value;
};

} // namespace Kelvaris
