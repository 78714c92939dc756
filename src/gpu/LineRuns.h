#pragma once

#include <cstddef>
#include <vector>

namespace Kelvaris::US::GPU {

/// Where the CPU executor keeps the numbers of a line, split into runs by index modulo the decimation factor D: number
/// q D + r of the line is number q of run r, so that numbers D apart are neighbours. Before and after each run there is
/// room for a bundle of lanes, which is read but never counts.
class RunLayout {
public:
  static constexpr int margin = 64; ///< lanes of the largest bundle

  RunLayout(int count, int factor) : m_count(count), m_factor(factor), m_pitch(2 * margin + (count - 1) / factor + 1) {}

  std::vector<float> makeRuns() const { return std::vector<float>(static_cast<std::size_t>(m_factor * m_pitch)); }
  /// Number 0 of run 0.
  static float* firstOf(std::vector<float>& runs) { return runs.data() + margin; }
  static const float* firstOf(const std::vector<float>& runs) { return runs.data() + margin; }

  template <typename Read> void fill(std::vector<float>& runs, Read&& read) const {
    for (int remainder = 0; remainder < m_factor; ++remainder) {
      float* run = firstOf(runs) + remainder * m_pitch;
      for (int i = remainder; i < m_count; i += m_factor)
        *run++ = read(i);
    }
  }

  /// From number q D to number q D + k.
  std::ptrdiff_t offset(int k) const {
    const int quotient = k >= 0 ? k / m_factor : -((m_factor - 1 - k) / m_factor);
    return (k - quotient * m_factor) * m_pitch + quotient;
  }

private:
  int m_count, m_factor;
  std::ptrdiff_t m_pitch;
};

} // namespace Kelvaris::US::GPU
