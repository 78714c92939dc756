#pragma once

#include <vector>

namespace Kelvaris {
class Mask;
class MemImage;
} // namespace Kelvaris

namespace Kelvaris::Viewer {

/// How the values of a slice are spread (of pixels with several components: their magnitudes). Masked pixels and values
/// that aren't finite don't count.
class SliceStatistics {
public:
  /// `mask` may be null.
  SliceStatistics(const MemImage& image, const Mask* mask, int slice);

  /// Neither value counts.
  bool empty() const { return m_sample.empty(); }
  /// 0 where empty.
  double least() const { return m_least; }
  double most() const { return m_most; }
  /// The value that the share `share` (0 to 1) of the values isn't above, from an even sample of at most some ten
  /// thousands of them; 0 where empty.
  double quantile(double share) const;
  /// The same of the absolute values.
  double absoluteQuantile(double share) const;

private:
  double m_least = 0.0, m_most = 0.0;
  std::vector<double> m_sample;
};

} // namespace Kelvaris::Viewer
