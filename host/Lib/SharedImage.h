#pragma once

#include "Lib/Data.h"
#include "Lib/Mask.h"
#include "Lib/MemImage.h"

#include <Eigen/Core>

#include <array>
#include <memory>
#include <mutex>

namespace Kelvaris {

/// One image in up to three forms (main memory, texture, device buffer). A form is made on demand from a valid one and
/// then stays with the image. Reading is safe from several threads; assign() and the setters are not.
class SharedImage {
public:
  explicit SharedImage(std::shared_ptr<Image> image);
  explicit SharedImage(const ImageDescriptor& descriptor); ///< no pixels yet: assign() gives them
  virtual ~SharedImage() = default;
  SharedImage(const SharedImage&) = delete;
  SharedImage& operator=(const SharedImage&) = delete;

  const ImageDescriptor& descriptor() const { return m_descriptor; }

  /// The image in main memory (always a TypedImage), read back from another form if need be.
  /// Throws std::runtime_error if there are no pixels or they can't be read back.
  std::shared_ptr<MemImage> mem() const;
  /// The same, but an image that has to be read back for it doesn't stay as a form.
  std::shared_ptr<MemImage> temporaryMem() const;

  /// The image as a T (CUDA::DeviceBufferImage, GlImage), made from main memory if need be. Throws like mem() and T's
  /// constructor.
  template <typename T> std::shared_ptr<T> sharedCustom() const {
    const std::scoped_lock lock(m_mutex);
    std::shared_ptr<Image>& held = m_forms[static_cast<std::size_t>(T::form)];
    if (!held) held = std::make_shared<T>(*memLocked());
    return std::static_pointer_cast<T>(held);
  }
  bool hasForm(ImageForm form) const;

  /// The new image replaces all forms, and its descriptor the present one.
  void assign(std::shared_ptr<Image> image);
  /// The pixels in main memory (in the texture) have been changed: the other forms are dropped.
  void setDirtyMem() { keepOnly(ImageForm::Mem); }
  void setDirtyGl() { keepOnly(ImageForm::Gl); }

  /// 1: deep copy, pixels and all. 4: everything but the pixels.
  virtual std::unique_ptr<SharedImage> clone(int option) const;

  /// Null if no pixel is marked invalid.
  std::shared_ptr<const Mask> mask() const { return m_mask; }
  void setMask(std::shared_ptr<const Mask> mask) { m_mask = std::move(mask); }
  Data::Modality modality() const { return m_modality; }
  void setModality(Data::Modality modality) { m_modality = modality; }
  /// From image to world coordinates.
  const Eigen::Matrix4d& matrix() const { return m_matrix; }
  void setMatrix(const Eigen::Matrix4d& matrix) { m_matrix = matrix; }

private:
  std::shared_ptr<MemImage> memLocked() const;
  std::shared_ptr<MemImage> temporaryMemLocked() const;
  void keepOnly(ImageForm form);

  ImageDescriptor m_descriptor;
  mutable std::mutex m_mutex;
  mutable std::array<std::shared_ptr<Image>, 3> m_forms;
  std::shared_ptr<const Mask> m_mask;
  Data::Modality m_modality = Data::UnknownModality;
  Eigen::Matrix4d m_matrix = Eigen::Matrix4d::Identity();
};

} // namespace Kelvaris
