#pragma once

#include "Lib/Image.h"

#include <memory>
#include <utility>

namespace Kelvaris {

/// An image in main memory: all samples in one block, component by component, then along width, height, slices. Made by
/// create() or as a TypedImage. The pixels of a new image are not initialised; its block is 64-byte aligned. An image
/// may also stand on samples of others. An image that has been moved from can only be destroyed.
class MemImage : public Image {
public:
  static constexpr ImageForm form = ImageForm::Mem;

  /// A new TypedImage of the descriptor's pixel type. Throws std::invalid_argument for an invalid descriptor,
  /// std::length_error or std::bad_alloc for one that is too large.
  static std::unique_ptr<MemImage> create(const ImageDescriptor& descriptor);
  /// The same on samples that are there already, descriptor.byteSize() bytes, aligned as their type asks for. They are
  /// read and written in place; the pointer keeps them alive, and lets go of them on whichever thread drops the image.
  /// Throws std::invalid_argument for an invalid descriptor and for a null or misaligned pointer.
  static std::unique_ptr<MemImage> create(const ImageDescriptor& descriptor, std::shared_ptr<void> samples);

  ImageForm imageForm() const override { return form; }
  std::unique_ptr<MemImage> download() const override { return clone(); }
  std::unique_ptr<MemImage> clone() const;

  void* data() { return m_data.get(); }
  const void* data() const { return m_data.get(); }
  std::size_t byteSize() const { return m_descriptor.byteSize(); }

  int width() const { return m_descriptor.width(); }
  int height() const { return m_descriptor.height(); }
  int slices() const { return m_descriptor.slices(); }
  int channels() const { return m_descriptor.channels(); }

  /// The descriptor's spacing, metric flag, shift and scale may change; pixel type and extent are fixed.
  void setSpacing(const Eigen::Vector3d& spacing) { m_descriptor.setSpacing(spacing); }

  /// Linear index of a sample component; not checked.
  std::size_t index(int x, int y, int z, int channel) const {
    const auto w = static_cast<std::size_t>(width()), h = static_cast<std::size_t>(height()),
               c = static_cast<std::size_t>(channels());
    return ((static_cast<std::size_t>(z) * h + static_cast<std::size_t>(y)) * w + static_cast<std::size_t>(x)) * c +
           static_cast<std::size_t>(channel);
  }

  /// The stored value of one sample component, widened.
  double valueAsDouble(int x, int y, int z, int channel) const;

protected:
  MemImage(MemImage&&) = default;
  /// An extent may be 0: an image without pixels. Throws std::invalid_argument for an unknown pixel type, a negative
  /// extent or no channels.
  explicit MemImage(const ImageDescriptor& descriptor);
  MemImage(const ImageDescriptor& descriptor, std::shared_ptr<void> samples);

private:
  std::shared_ptr<void> m_data;
};

/// The pixel type of samples of type T; PixelFloat for float.
template <typename T> constexpr int pixelTypeOf();
template <> constexpr int pixelTypeOf<signed char>() {
  return PixelInt8;
}
template <> constexpr int pixelTypeOf<unsigned char>() {
  return PixelUInt8;
}
template <> constexpr int pixelTypeOf<short>() {
  return PixelInt16;
}
template <> constexpr int pixelTypeOf<unsigned short>() {
  return PixelUInt16;
}
template <> constexpr int pixelTypeOf<int>() {
  return PixelInt32;
}
template <> constexpr int pixelTypeOf<unsigned int>() {
  return PixelUInt32;
}
template <> constexpr int pixelTypeOf<float>() {
  return PixelFloat;
}
template <> constexpr int pixelTypeOf<double>() {
  return PixelDouble;
}

/// A MemImage whose samples have the type T (float also for half-float images).
template <typename T> class TypedImage : public MemImage {
public:
  /// Throw std::invalid_argument for a negative extent or no channels; an extent of 0 gives an image without pixels.
  TypedImage(int width, int height, int slices = 1, int channels = 1)
      : MemImage(ImageDescriptor(pixelTypeOf<T>(), width, height, slices, channels)) {}
  /// The pixel type must be one whose samples are T.
  explicit TypedImage(const ImageDescriptor& descriptor) : MemImage(descriptor) {}
  TypedImage(const ImageDescriptor& descriptor, std::shared_ptr<void> samples)
      : MemImage(descriptor, std::move(samples)) {}

  T* pointer() { return static_cast<T*>(data()); }
  const T* pointer() const { return static_cast<const T*>(data()); }
  /// Sample components in all.
  std::size_t size() const { return m_descriptor.elementCount(); }
  T& operator[](std::size_t i) { return pointer()[i]; }
  const T& operator[](std::size_t i) const { return pointer()[i]; }

  T value(int x, int y, int z = 0, int channel = 0) const { return pointer()[index(x, y, z, channel)]; }
  void setValue(T value, int x, int y, int z = 0, int channel = 0) { pointer()[index(x, y, z, channel)] = value; }
};

} // namespace Kelvaris
