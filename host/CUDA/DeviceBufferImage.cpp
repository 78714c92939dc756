#include "CUDA/DeviceBufferImage.h"

#include "CUDA/Device.h"
#include "Lib/GpuForms.h"
#include "Lib/MemImage.h"
#include "Lib/SharedImage.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris::CUDA {
namespace {

// Where the processor takes the place of the device, its memory is main memory, and another copy there is no gain.
const GpuForms::Registration g_deviceBuffer{
    {"device buffer", 0, &Device::isCuda, [](const SharedImage& image) { image.sharedCustom<DeviceBufferImage>(); }}};

std::size_t checkedSize(const ImageDescriptor& descriptor) {
  if (!descriptor.isValid())
    throw std::invalid_argument(
        fmt::format("A device image needs a known pixel type, at least one channel and extents of at "
                    "least 1, not {}",
                    descriptor.toString()));
  return descriptor.byteSize();
}
} // namespace

DeviceBufferImage::DeviceBufferImage(const ImageDescriptor& descriptor)
    : Image(descriptor), m_memory(checkedSize(descriptor)) {}

DeviceBufferImage::DeviceBufferImage(const MemImage& image) : DeviceBufferImage(image.descriptor()) {
  m_memory.upload(image.data(), image.byteSize());
}

std::unique_ptr<MemImage> DeviceBufferImage::download() const {
  auto image = MemImage::create(descriptor());
  m_memory.download(image->data(), image->byteSize());
  return image;
}

KernelBuffer DeviceBufferImage::kernelBuffer() const {
  const ImageDescriptor& d = descriptor();
  KernelBuffer buffer;
  buffer.width = d.width();
  buffer.height = d.height();
  buffer.slices = d.slices();
  buffer.data = m_memory.data();
  buffer.elementStride = d.bytesPerComponent() * d.channels();
  buffer.rowPitch = static_cast<std::int64_t>(d.width()) * buffer.elementStride;
  return buffer;
}

} // namespace Kelvaris::CUDA
