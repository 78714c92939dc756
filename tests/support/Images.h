#pragma once

#include "Lib/MemImage.h"

#include <cstring>
#include <memory>
#include <random>

namespace Kelvaris::Tests {

/// Random bytes, so that every bit pattern of the type occurs, NaN with payload included.
inline std::shared_ptr<MemImage> randomBytes(const ImageDescriptor& descriptor, unsigned seed = 1) {
  std::shared_ptr<MemImage> image = MemImage::create(descriptor);
  std::mt19937 random(seed);
  auto* bytes = static_cast<unsigned char*>(image->data());
  for (std::size_t i = 0; i < image->byteSize(); ++i)
    bytes[i] = static_cast<unsigned char>(random());
  return image;
}

/// Same pixels, bit for bit, of images of any descriptors.
inline bool sameBytes(const MemImage& a, const MemImage& b) {
  return a.byteSize() == b.byteSize() && std::memcmp(a.data(), b.data(), a.byteSize()) == 0;
}

} // namespace Kelvaris::Tests
