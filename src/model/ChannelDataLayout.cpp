#include "model/ChannelDataLayout.h"

#include "Core/Properties.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace Kelvaris::US {
namespace {

using Axis = ChannelDataLayout::Axis;

constexpr std::size_t kParallelBytes = 1 << 20; // below this the threads take longer to start than to copy
constexpr std::array<Axis, 3> kAxes{Axis::Channels, Axis::FastTime, Axis::SlowTime};

/// Extent of each axis and its distance in memory in pixels, both by axis; `fastest` lies closest in memory.
struct AxisSteps {
  AxisSteps(const MemImage& image, const ChannelDataLayout& layout) : fastest(layout.axisSemantics(0)) {
    std::ptrdiff_t step = 1;
    for (int dimension = 0; dimension < 3; ++dimension) {
      const auto axis = static_cast<std::size_t>(layout.axisSemantics(dimension));
      extents[axis] = image.descriptor().dimensions()[dimension];
      steps[axis] = step;
      step *= extents[axis];
    }
  }
  std::ptrdiff_t extent(Axis axis) const { return extents[static_cast<std::size_t>(axis)]; }
  std::ptrdiff_t step(Axis axis) const { return steps[static_cast<std::size_t>(axis)]; }

  std::array<std::ptrdiff_t, 3> extents{};
  std::array<std::ptrdiff_t, 3> steps{};
  Axis fastest;
};

Axis axisBeside(Axis a, Axis b) {
  return *std::find_if(kAxes.begin(), kAxes.end(), [&](Axis axis) { return axis != a && axis != b; });
}

/// Tiles over the two axes that are the closest in memory on either side, so that both are read and written in lines.
template <typename Sample>
void permute(const MemImage& image, const AxisSteps& in, MemImage& result, const AxisSteps& out) {
  constexpr std::ptrdiff_t tile = 32;
  const auto* source = static_cast<const Sample*>(image.data());
  auto* target = static_cast<Sample*>(result.data());
  const std::ptrdiff_t components = image.channels();

  const Axis inner = out.fastest;
  const Axis middle = in.fastest != inner ? in.fastest : axisBeside(inner, inner);
  const Axis outer = axisBeside(inner, middle);
  const std::ptrdiff_t innerCount = in.extent(inner), middleCount = in.extent(middle), outerCount = in.extent(outer);
  const std::ptrdiff_t innerTile = in.fastest == inner ? innerCount : tile;

#pragma omp parallel for collapse(2) schedule(static) if (image.byteSize() >= kParallelBytes)
  for (std::ptrdiff_t o = 0; o < outerCount; ++o) {
    for (std::ptrdiff_t m0 = 0; m0 < middleCount; m0 += tile) {
      for (std::ptrdiff_t i0 = 0; i0 < innerCount; i0 += innerTile) {
        const std::ptrdiff_t mEnd = std::min(m0 + tile, middleCount), iEnd = std::min(i0 + innerTile, innerCount);
        for (std::ptrdiff_t m = m0; m < mEnd; ++m) {
          const Sample* from = source + components * (o * in.step(outer) + m * in.step(middle));
          Sample* to = target + components * (o * out.step(outer) + m * out.step(middle));
          for (std::ptrdiff_t i = i0; i < iEnd; ++i)
            for (std::ptrdiff_t k = 0; k < components; ++k)
              to[components * i + k] = from[components * i * in.step(inner) + k];
        }
      }
    }
  }
}

void requirePermutation(const ChannelDataLayout& layout, const char* role) {
  if (!layout.isPermutation())
    throw std::invalid_argument(
        fmt::format("The {} layout ({} {} {}) of the channel data must carry each of the axes 0, 1 and 2 once", role,
                    static_cast<int>(layout.axisSemantics(0)), static_cast<int>(layout.axisSemantics(1)),
                    static_cast<int>(layout.axisSemantics(2))));
}

} // namespace

int ChannelDataLayout::axisIndex(Axis axis) const {
  return static_cast<int>(std::find(m_axisSemantics.begin(), m_axisSemantics.end(), axis) - m_axisSemantics.begin());
}

bool ChannelDataLayout::isPermutation() const {
  return std::is_permutation(kAxes.begin(), kAxes.end(), m_axisSemantics.begin());
}

Eigen::Vector3i ChannelDataLayout::packVec(int channel, int fastTime, int slowTime) const {
  Eigen::Vector3i packed = Eigen::Vector3i::Zero();
  for (int dimension = 0; dimension < 3; ++dimension) {
    const Axis axis = axisSemantics(dimension);
    if (axis == Axis::Channels) packed[dimension] = channel;
    if (axis == Axis::FastTime) packed[dimension] = fastTime;
    if (axis == Axis::SlowTime) packed[dimension] = slowTime;
  }
  return packed;
}

Eigen::Vector3i ChannelDataLayout::unpackVec(const Eigen::Vector3i& packed) const {
  const auto entry = [&](int dimension) { return dimension < 3 ? packed[dimension] : 0; };
  return {entry(slowTimeAxisIndex()), entry(fastTimeAxisIndex()), entry(channelsAxisIndex())};
}

void ChannelDataLayout::configure(const Properties* properties) {
  if (!properties) return;
  std::vector<int> axes;
  if (!properties->param("axisSemantics", axes) || axes.size() != m_axisSemantics.size()) return;
  std::transform(axes.begin(), axes.end(), m_axisSemantics.begin(), [](int axis) { return static_cast<Axis>(axis); });
}

void ChannelDataLayout::configuration(Properties* properties) const {
  if (!properties) return;
  std::vector<int> axes;
  for (const Axis axis : m_axisSemantics)
    axes.push_back(static_cast<int>(axis));
  properties->setParam("axisSemantics", axes);
}

std::unique_ptr<MemImage> permuteChannelData(const MemImage& image, const ChannelDataLayout& from,
                                             const ChannelDataLayout& to) {
  requirePermutation(from, "present");
  requirePermutation(to, "new");
  const Eigen::Vector3i counts = from.unpackVec(image.descriptor().dimensions());
  ImageDescriptor descriptor = image.descriptor();
  descriptor.setDimensions(to.packVec(counts[2], counts[1], counts[0]));
  std::unique_ptr<MemImage> result = MemImage::create(descriptor);
  const AxisSteps in(image, from), out(*result, to);
  dispatchPixelType(descriptor.pixelType(), [&]<typename Sample>() { permute<Sample>(image, in, *result, out); });
  return result;
}

} // namespace Kelvaris::US
