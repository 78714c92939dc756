#include "Lib/ImageDescriptor.h"

#include <fmt/format.h>

#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace Kelvaris {
namespace {

/// Equal, or within a relative tolerance; NaN and infinity equal themselves.
bool close(double a, double b, double tolerance) {
  if (a == b || (std::isnan(a) && std::isnan(b))) return true;
  return std::abs(a - b) <= tolerance * std::max(std::abs(a), std::abs(b));
}

} // namespace

ImageDescriptor::ImageDescriptor(int pixelType, int width, int height, int slices, int channels)
    : m_pixelType(pixelType), m_channels(channels), m_dimensions(width, height, slices) {}

void ImageDescriptor::setDimensions(const Eigen::Vector3i& dimensions, int channels) {
  m_dimensions = dimensions;
  if (channels != 0) m_channels = channels;
}

bool ImageDescriptor::isValid() const {
  return bytesPerComponent() > 0 && m_channels >= 1 && (m_dimensions.array() >= 1).all();
}

bool ImageDescriptor::isApprox(const ImageDescriptor& other, double tolerance) const {
  for (int axis = 0; axis < 3; ++axis)
    if (!close(m_spacing[axis], other.m_spacing[axis], tolerance)) return false;
  return m_pixelType == other.m_pixelType && m_channels == other.m_channels && m_dimensions == other.m_dimensions &&
         m_metric == other.m_metric && close(m_shift, other.m_shift, tolerance) &&
         close(m_scale, other.m_scale, tolerance);
}

Eigen::Matrix4d ImageDescriptor::textureToImageMatrix() const {
  const Eigen::Vector3d extent = m_dimensions.cast<double>().cwiseProduct(m_spacing);
  Eigen::Matrix4d matrix = Eigen::Matrix4d::Identity();
  matrix.diagonal().head<3>() = extent;
  matrix.topRightCorner<3, 1>() = -0.5 * extent;
  return matrix;
}

int ImageDescriptor::bytesPerComponent(int pixelType) {
  int bytes = 0;
  dispatchPixelType(pixelType, [&]<typename T>() { bytes = static_cast<int>(sizeof(T)); });
  return bytes;
}

std::size_t ImageDescriptor::elementCount() const {
  std::size_t count = 1;
  for (const int extent : {m_dimensions.x(), m_dimensions.y(), m_dimensions.z(), m_channels}) {
    if (extent <= 0) return 0;
    if (__builtin_mul_overflow(count, static_cast<std::size_t>(extent), &count))
      throw std::length_error(fmt::format("An image of {} exceeds the address space", toString()));
  }
  return count;
}

std::size_t ImageDescriptor::byteSize() const {
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(elementCount(), static_cast<std::size_t>(bytesPerComponent()), &bytes) ||
      bytes > PTRDIFF_MAX)
    throw std::length_error(fmt::format("An image of {} exceeds the address space", toString()));
  return bytes;
}

std::string ImageDescriptor::toString() const {
  return fmt::format("{}, {} x {} x {}, {} channel{}", pixelTypeName(m_pixelType), m_dimensions.x(), m_dimensions.y(),
                     m_dimensions.z(), m_channels, m_channels == 1 ? "" : "s");
}

std::string ImageDescriptor::pixelTypeName(int pixelType) {
  switch (pixelType) {
  case PixelInt8:
    return "int8";
  case PixelUInt8:
    return "uint8";
  case PixelInt16:
    return "int16";
  case PixelUInt16:
    return "uint16";
  case PixelInt32:
    return "int32";
  case PixelUInt32:
    return "uint32";
  case PixelFloat:
    return "float";
  case PixelDouble:
    return "double";
  case PixelHalf:
    return "half";
  default:
    return fmt::format("unknown type {}", pixelType);
  }
}

} // namespace Kelvaris
