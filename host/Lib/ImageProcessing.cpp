#include "Lib/ImageProcessing.h"

#include "Lib/MemImage.h"

#include <fmt/format.h>

#include <cstring>
#include <stdexcept>

namespace Kelvaris::ImageProcessing {
namespace {

Eigen::Vector3i extent(const SharedImage& image) {
  const ImageDescriptor& d = image.descriptor();
  return {d.width(), d.height(), d.slices()};
}

ImageDescriptor withExtent(const ImageDescriptor& descriptor, const Eigen::Vector3i& size) {
  ImageDescriptor result(descriptor.pixelType(), size.x(), size.y(), size.z(), descriptor.channels());
  result.setSpacing(descriptor.spacing());
  result.setMetric(descriptor.isMetric());
  result.setShift(descriptor.shift());
  result.setScale(descriptor.scale());
  return result;
}

/// Copies a box of `size` pixels between images of one pixel type.
void copyBox(const MemImage& source, const Eigen::Vector3i& from, MemImage& target, const Eigen::Vector3i& to,
             const Eigen::Vector3i& size) {
  const auto component = static_cast<std::size_t>(source.descriptor().bytesPerComponent());
  const std::size_t row = static_cast<std::size_t>(size.x()) * static_cast<std::size_t>(source.channels()) * component;
  for (int z = 0; z < size.z(); ++z)
    for (int y = 0; y < size.y(); ++y)
      std::memcpy(static_cast<char*>(target.data()) + target.index(to.x(), to.y() + y, to.z() + z, 0) * component,
                  static_cast<const char*>(source.data()) +
                      source.index(from.x(), from.y() + y, from.z() + z, 0) * component,
                  row);
}

std::unique_ptr<SharedImage> withPixels(const SharedImage& image, std::unique_ptr<MemImage> pixels) {
  std::unique_ptr<SharedImage> result = image.clone(4);
  result->assign(std::move(pixels));
  return result;
}

} // namespace

std::unique_ptr<SharedImage> createCropped(const SharedImage& image, const Eigen::Vector3i& origin,
                                           const Eigen::Vector3i& size) {
  const Eigen::Vector3i whole = extent(image);
  if ((origin.array() < 0).any() || (size.array() < 1).any() || (size.array() > (whole - origin).array()).any())
    throw std::invalid_argument(
        fmt::format("There are no {} x {} x {} pixels from ({}, {}, {}) on in an image of {} x {} x {}", size.x(),
                    size.y(), size.z(), origin.x(), origin.y(), origin.z(), whole.x(), whole.y(), whole.z()));
  auto pixels = MemImage::create(withExtent(image.descriptor(), size));
  copyBox(*image.mem(), origin, *pixels, Eigen::Vector3i::Zero(), size);
  return withPixels(image, std::move(pixels));
}

std::unique_ptr<SharedImage> createPadded(const SharedImage& image, const Eigen::Vector3i& before,
                                          const Eigen::Vector3i& after) {
  if ((before.array() < 0).any() || (after.array() < 0).any())
    throw std::invalid_argument("An image can't be padded by a negative number of pixels");
  const Eigen::Vector3i whole = extent(image);
  auto pixels = MemImage::create(withExtent(image.descriptor(), before + whole + after));
  std::memset(pixels->data(), 0, pixels->byteSize());
  copyBox(*image.mem(), Eigen::Vector3i::Zero(), *pixels, before, whole);
  return withPixels(image, std::move(pixels));
}

} // namespace Kelvaris::ImageProcessing
