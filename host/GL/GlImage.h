#pragma once

#include "Lib/Image.h"
#include "Lib/MemImage.h"

#include <memory>

namespace Kelvaris {

/// An image as an OpenGL texture. The texture holds values, not normalised codes:
///
/// | pixel type            | texel                | main memory to texture and back              |
/// | --------------------- | -------------------- | -------------------------------------------- |
/// | 8, 16 bit, float      | 32-bit float         | exact                                        |
/// | half                  | 16-bit float         | rounded to the nearest half                  |
/// | 32-bit, double        | 32-bit float         | rounded to the nearest float                 |
///
/// Values on their way back into integers are rounded half away from zero and clamped to the type; NaN becomes 0.
/// One slice is a 2D texture, more are a 2D array. Three components lie in texels of four, since shaders can't write
/// three. Works on any thread: every operation makes a context current for itself.
class GlImage : public Image {
public:
  static constexpr ImageForm form = ImageForm::Gl;

  /// A texture with undefined content. Throws std::invalid_argument for an invalid descriptor or more than 4 channels,
  /// and GL::Error if it is larger than OpenGL's limits or OpenGL isn't available.
  explicit GlImage(const ImageDescriptor& descriptor);
  /// A texture with the image's content. Throws like the other.
  explicit GlImage(const MemImage& image);
  ~GlImage() override;

  ImageForm imageForm() const override { return form; }
  std::unique_ptr<MemImage> download() const override;
  /// Replaces the content. Throws std::invalid_argument for an image of another pixel type, size or number of channels,
  /// and GL::Error.
  void upload(const MemImage& image);

  /// OpenGL's name of the texture.
  unsigned texture() const { return m_texture; }
  /// GL_R32F, GL_RG32F, GL_RGBA32F, or the same with 16F.
  unsigned internalFormat() const { return m_internalFormat; }

private:
  unsigned m_texture = 0;
  unsigned m_internalFormat = 0;
};

} // namespace Kelvaris
