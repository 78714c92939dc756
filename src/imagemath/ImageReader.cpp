#include "imagemath/ImageReader.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Kelvaris::ImageMath::internal {
namespace {

/// values[i] = convert(samples[i * stride]).
template <typename T, typename V, typename Convert>
void copySamples(const T* samples, std::ptrdiff_t stride, int count, V* values, const Convert& convert) {
  if (stride == 1)
    for (int i = 0; i < count; ++i)
      values[i] = convert(samples[i]);
  else if (stride == 2)
    for (int i = 0; i < count; ++i)
      values[i] = convert(samples[std::ptrdiff_t{2} * i]);
  else
    for (int i = 0; i < count; ++i)
      values[i] = convert(samples[i * stride]);
}

} // namespace

ImageReader::ImageReader(std::shared_ptr<const MemImage> image, const ArrayAccess& access)
    : m_image(std::move(image)), m_access(access) {}

template <typename V> void ImageReader::read(const Block& block, int channel, V* values) const {
  const ImageDescriptor& d = m_image->descriptor();
  const int ownChannel = d.channels() == 1 ? 0 : channel;

  const auto readAll = [&]<typename T>(const auto& convert) {
    const T* const samples = static_cast<const T*>(m_image->data()) + ownChannel;
    if (!m_access.mapped) {
      const std::ptrdiff_t slicePixels = std::ptrdiff_t{d.width()} * d.height();
      copySamples(samples + (block.slice * slicePixels + block.first) * d.channels(), d.channels(), block.count, values,
                  convert);
      return;
    }
    const V border = convert(m_access.border[std::min(ownChannel, 3)]);
    const std::array<std::ptrdiff_t, 3> strides = {d.channels(), std::ptrdiff_t{d.channels()} * d.width(),
                                                   std::ptrdiff_t{d.channels()} * d.width() * d.height()};
    // Along a row only the image's axis `along` changes.
    const int along =
        static_cast<int>(std::find(m_access.axes.begin(), m_access.axes.end(), 0) - m_access.axes.begin());
    const bool toEdge = m_access.wrap == kClampToEdge;
    block.forEachRow([&](int x, int y, int offset, int count) {
      V* const out = values + offset;
      const Eigen::Vector3i moved = Eigen::Vector3i(x, y, block.slice) + m_access.offset;
      const T* row = samples;
      bool isOutside = false;
      for (int axis = 0; axis < 3; ++axis) {
        if (axis == along) continue;
        const int wanted = moved[m_access.axes[axis]], inside = std::clamp(wanted, 0, d.dimensions()[axis] - 1);
        isOutside = isOutside || (inside != wanted && !toEdge);
        row += inside * strides[static_cast<std::size_t>(axis)];
      }
      const int last = d.dimensions()[along] - 1;
      const std::ptrdiff_t stride = strides[static_cast<std::size_t>(along)];
      if (isOutside)
        std::fill_n(out, count, border);
      else if (last == 0 && toEdge)
        std::fill_n(out, count, convert(*row));
      else
        for (int i = 0; i < count; ++i) {
          const int wanted = moved[0] + i, inside = std::clamp(wanted, 0, last);
          out[i] = inside != wanted && !toEdge ? border : convert(row[inside * stride]);
        }
    });
  };

  const double scale = d.scale(), shift = d.shift();
  const bool plain = m_access.raw || (scale == 1.0 && shift == 0.0);
  dispatchPixelType(d.pixelType(), [&]<typename T>() {
    if (plain)
      readAll.template operator()<T>([](auto sample) { return static_cast<V>(sample); });
    else
      readAll.template operator()<T>(
          [scale, shift](auto sample) { return static_cast<V>(static_cast<double>(sample) / scale - shift); });
  });
}

template void ImageReader::read(const Block&, int, float*) const;
template void ImageReader::read(const Block&, int, double*) const;

void ImageReader::readMask(const Mask& mask, const Block& block, double* values) const {
  std::array<unsigned char, kBlockSize> valid;
  block.forEachRow([&](int x, int y, int offset, int count) {
    unsigned char* const out = valid.data() + offset;
    if (!m_access.mapped) {
      mask.evaluate(*m_image, x, y, block.slice, count, out);
      return;
    }
    for (int i = 0; i < count; ++i) {
      const auto at = m_access.position({x + i, y, block.slice}, m_image->descriptor().dimensions());
      out[i] = 0;
      if (at) mask.evaluate(*m_image, at->x(), at->y(), at->z(), 1, out + i);
    }
  });
  for (int i = 0; i < block.count; ++i)
    values[i] = valid[static_cast<std::size_t>(i)];
}

} // namespace Kelvaris::ImageMath::internal
