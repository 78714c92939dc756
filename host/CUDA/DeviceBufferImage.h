#pragma once

#include "CUDA/DeviceMemory.h"
#include "CUDA/KernelBuffer.h"
#include "Lib/Image.h"

namespace Kelvaris::CUDA {

/// An image in the executor's memory: linear, without gaps between rows, laid out as a MemImage. A half-float image
/// holds 32-bit floats.
class DeviceBufferImage : public Image {
public:
  static constexpr ImageForm form = ImageForm::Device;

  /// Pixels are not initialised. Throws std::invalid_argument for an invalid descriptor, and like DeviceMemory.
  explicit DeviceBufferImage(const ImageDescriptor& descriptor);
  /// Uploads the image. Throws alike.
  explicit DeviceBufferImage(const MemImage& image);

  ImageForm imageForm() const override { return form; }
  std::unique_ptr<MemImage> download() const override;

  /// A view for kernels, valid as long as this image. The pixel's components together are one element.
  KernelBuffer kernelBuffer() const;

private:
  DeviceMemory m_memory;
};

} // namespace Kelvaris::CUDA
