#include "Lib/MemImage.h"

#include <fmt/format.h>

#include <cstring>
#include <new>
#include <stdexcept>

namespace Kelvaris {

MemImage::MemImage(const ImageDescriptor& descriptor) : Image(descriptor) {
  if (descriptor.bytesPerComponent() == 0 || descriptor.channels() < 1 || (descriptor.dimensions().array() < 0).any())
    throw std::invalid_argument(fmt::format("No image can be made of {}", descriptor.toString()));
  constexpr std::size_t alignment = 64;
  const std::size_t bytes = (descriptor.byteSize() / alignment + 1) * alignment;
  m_data.reset(std::aligned_alloc(alignment, bytes));
  if (!m_data) throw std::bad_alloc();
}

std::unique_ptr<MemImage> MemImage::create(const ImageDescriptor& descriptor) {
  std::unique_ptr<MemImage> image;
  if (!descriptor.isValid())
    throw std::invalid_argument(fmt::format("No image can be made of {}", descriptor.toString()));
  if (!dispatchPixelType(descriptor.pixelType(),
                         [&]<typename T>() { image = std::make_unique<TypedImage<T>>(descriptor); }))
    throw std::invalid_argument(fmt::format("No image can be made of {}", descriptor.toString()));
  return image;
}

std::unique_ptr<MemImage> MemImage::clone() const {
  std::unique_ptr<MemImage> copy = create(m_descriptor);
  std::memcpy(copy->data(), data(), byteSize());
  return copy;
}

double MemImage::valueAsDouble(int x, int y, int z, int channel) const {
  double value = 0.0;
  dispatchPixelType(m_descriptor.pixelType(), [&]<typename T>() {
    value = static_cast<double>(static_cast<const T*>(data())[index(x, y, z, channel)]);
  });
  return value;
}

} // namespace Kelvaris
