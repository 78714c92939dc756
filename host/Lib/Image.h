#pragma once

#include "Lib/ImageDescriptor.h"

#include <memory>

namespace Kelvaris {

class MemImage;

/// The places in which the pixels of a SharedImage can lie.
enum class ImageForm : int { Mem = 0, Gl = 1, Device = 2 };

/// One image in one form. A form is a class of its own with a static `form` and a constructor from `const MemImage&`.
class Image {
public:
  explicit Image(ImageDescriptor descriptor) : m_descriptor(std::move(descriptor)) {}
  virtual ~Image() = default;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  const ImageDescriptor& descriptor() const { return m_descriptor; }
  virtual ImageForm imageForm() const = 0;
  /// A copy of the pixels in main memory. Throws std::runtime_error if they can't be read back.
  virtual std::unique_ptr<MemImage> download() const = 0;

protected:
  Image(Image&&) = default; ///< for classes that can be returned by value

  ImageDescriptor m_descriptor;
};

} // namespace Kelvaris
