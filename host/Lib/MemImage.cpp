#include "Lib/MemImage.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

namespace Kelvaris {

namespace {

[[noreturn]] void refuse(const ImageDescriptor& descriptor) {
  throw std::invalid_argument(fmt::format("No image can be made of {}", descriptor.toString()));
}

template <typename... Samples>
std::unique_ptr<MemImage> makeTyped(const ImageDescriptor& descriptor, const Samples&... samples) {
  std::unique_ptr<MemImage> image;
  if (!descriptor.isValid() || !dispatchPixelType(descriptor.pixelType(), [&]<typename T>() {
        image = std::make_unique<TypedImage<T>>(descriptor, samples...);
      }))
    refuse(descriptor);
  return image;
}

} // namespace

MemImage::MemImage(const ImageDescriptor& descriptor) : Image(descriptor) {
  if (descriptor.bytesPerComponent() == 0 || descriptor.channels() < 1 || (descriptor.dimensions().array() < 0).any())
    refuse(descriptor);
  constexpr std::size_t alignment = 64;
  const std::size_t bytes = (descriptor.byteSize() / alignment + 1) * alignment;
  m_data.reset(std::aligned_alloc(alignment, bytes), std::free);
  if (!m_data) throw std::bad_alloc();
}

MemImage::MemImage(const ImageDescriptor& descriptor, std::shared_ptr<void> samples)
    : Image(descriptor), m_data(std::move(samples)) {
  const auto alignment = static_cast<std::uintptr_t>(descriptor.bytesPerComponent());
  if (!m_data || reinterpret_cast<std::uintptr_t>(m_data.get()) % alignment != 0)
    throw std::invalid_argument(fmt::format("Samples at {} make no image of {}; expected an address that is a multiple "
                                            "of {}",
                                            m_data.get(), descriptor.toString(), alignment));
}

std::unique_ptr<MemImage> MemImage::create(const ImageDescriptor& descriptor) {
  return makeTyped(descriptor);
}

std::unique_ptr<MemImage> MemImage::create(const ImageDescriptor& descriptor, std::shared_ptr<void> samples) {
  return makeTyped(descriptor, samples);
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
