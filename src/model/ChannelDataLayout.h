#pragma once

#include "Lib/DataComponent.h"
#include "Lib/MemImage.h"

#include <Eigen/Core>

#include <array>
#include <memory>
#include <string>

namespace Kelvaris::US {

/// Which image dimension (0 width, 1 height, 2 slices) of a block of channel data carries which of its three axes. The
/// default is channels along the width, fast time along the height, slow time along the slices. The three entries
/// should be a permutation of the axes; nothing enforces it. May be read from several threads.
class ChannelDataLayout : public DataComponent<ChannelDataLayout> {
public:
  enum class Axis : int {
    Channels = 0, ///< receive channels
    FastTime = 1, ///< samples of one recording
    SlowTime = 2  ///< events of a frame
  };

  ChannelDataLayout() = default;
  /// The axes that the width, the height and the slices carry.
  ChannelDataLayout(Axis width, Axis height, Axis slices) : m_axisSemantics{width, height, slices} {}

  /// The axis that the dimension (0 to 2, not checked) carries.
  Axis axisSemantics(int dimension) const { return m_axisSemantics[static_cast<std::size_t>(dimension)]; }
  /// The lowest dimension that carries the axis, 3 if none does.
  int axisIndex(Axis axis) const;
  int channelsAxisIndex() const { return axisIndex(Axis::Channels); }
  int fastTimeAxisIndex() const { return axisIndex(Axis::FastTime); }
  int slowTimeAxisIndex() const { return axisIndex(Axis::SlowTime); }
  bool isPermutation() const;

  /// Image coordinates (or extents) from those along the axes.
  Eigen::Vector3i packVec(int channel, int fastTime, int slowTime) const;
  /// The reverse in the opposite order: (slow time, fast time, channel), so unpackVec(packVec(c, f, s)) is (s, f, c).
  /// 0 for an axis that no dimension carries.
  Eigen::Vector3i unpackVec(const Eigen::Vector3i& packed) const;

  std::string id() const override { return "ChannelDataLayout"; }
  /// Takes over "axisSemantics" if it is a list of exactly three.
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;

  bool operator==(const ChannelDataLayout& other) const { return m_axisSemantics == other.m_axisSemantics; }
  bool operator!=(const ChannelDataLayout& other) const { return !(*this == other); }

private:
  std::array<Axis, 3> m_axisSemantics{Axis::Channels, Axis::FastTime, Axis::SlowTime};
};

/// A new image with the samples of `image`, which are laid out as `from`, in the layout `to`. The descriptor is copied
/// but for the extent; the spacing in particular stays as it is. Multi-threaded; takes memory for the new image alone.
/// Throws std::invalid_argument if a layout doesn't carry each axis once.
std::unique_ptr<MemImage> permuteChannelData(const MemImage& image, const ChannelDataLayout& from,
                                             const ChannelDataLayout& to);

} // namespace Kelvaris::US
