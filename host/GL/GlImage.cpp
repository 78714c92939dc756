#include "GL/GlImage.h"

#include "Core/Log.h"
#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/DriverLock.h"
#include "Lib/GpuForms.h"
#include "Lib/SharedImage.h"

#include <Eigen/Core>
#include <epoxy/gl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace Kelvaris {
namespace {

constexpr const char* kCategory = "GlImage";

const GpuForms::Registration g_texture{{"texture", 1, [] { return GL::ContextManager::get().isAvailable(); },
                                        [](const SharedImage& image) { image.sharedCustom<GlImage>(); }}};

GLenum texelFormat(const ImageDescriptor& descriptor) {
  constexpr GLenum full[] = {GL_R32F, GL_RG32F, GL_RGBA32F, GL_RGBA32F};
  constexpr GLenum half[] = {GL_R16F, GL_RG16F, GL_RGBA16F, GL_RGBA16F};
  const int index = descriptor.channels() - 1;
  return descriptor.pixelType() == PixelHalf ? half[index] : full[index];
}

GLenum transferFormat(const ImageDescriptor& descriptor) {
  constexpr GLenum formats[] = {GL_RED, GL_RG, GL_RGB, GL_RGBA};
  return formats[descriptor.channels() - 1];
}

GLenum target(const ImageDescriptor& descriptor) {
  return descriptor.slices() > 1 ? GL_TEXTURE_2D_ARRAY : GL_TEXTURE_2D;
}

void checkDescriptor(const ImageDescriptor& descriptor) {
  if (!descriptor.isValid() || descriptor.channels() > 4)
    throw std::invalid_argument(fmt::format(
        "No texture can be made of {}; it needs a known pixel type, 1 to 4 channels and sizes of at least 1",
        descriptor.toString()));
}

GLint limit(GLenum name) {
  GLint value = 0;
  KELVARIS_GL_CHECKED(glGetIntegerv(name, &value));
  return value;
}

void checkLimits(const ImageDescriptor& descriptor) {
  const GLint side = limit(GL_MAX_TEXTURE_SIZE);
  const GLint layers = limit(GL_MAX_ARRAY_TEXTURE_LAYERS);
  if (descriptor.width() > side || descriptor.height() > side || descriptor.slices() > layers)
    throw GL::Error(fmt::format("No texture can be made of {}; OpenGL's largest here has {} x {} pixels and {} slices",
                                descriptor.toString(), side, side, layers));
}

template <typename T> T fromTexel(float value) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(value);
  } else {
    if (std::isnan(value)) return 0;
    const double rounded = std::round(static_cast<double>(value));
    return static_cast<T>(std::clamp(rounded, static_cast<double>(std::numeric_limits<T>::lowest()),
                                     static_cast<double>(std::numeric_limits<T>::max())));
  }
}

} // namespace

GlImage::GlImage(const ImageDescriptor& descriptor) : Image(descriptor) {
  checkDescriptor(descriptor);
  const GL::ContextManager::ActivationGuard guard;
  const GL::DriverLock lock;
  checkLimits(descriptor);
  m_internalFormat = texelFormat(descriptor);
  KELVARIS_GL_CHECKED(glCreateTextures(target(descriptor), 1, &m_texture));
  try {
    if (descriptor.slices() > 1)
      KELVARIS_GL_CHECKED(glTextureStorage3D(m_texture, 1, m_internalFormat, descriptor.width(), descriptor.height(),
                                             descriptor.slices()));
    else
      KELVARIS_GL_CHECKED(glTextureStorage2D(m_texture, 1, m_internalFormat, descriptor.width(), descriptor.height()));
    // Without mipmaps a texture is complete only with these filters.
    KELVARIS_GL_CHECKED(glTextureParameteri(m_texture, GL_TEXTURE_MIN_FILTER, GL_NEAREST));
    KELVARIS_GL_CHECKED(glTextureParameteri(m_texture, GL_TEXTURE_MAG_FILTER, GL_NEAREST));
    KELVARIS_GL_CHECKED(glTextureParameteri(m_texture, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE));
    KELVARIS_GL_CHECKED(glTextureParameteri(m_texture, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE));
  } catch (...) {
    glDeleteTextures(1, &m_texture);
    throw;
  }
}

GlImage::GlImage(const MemImage& image) : GlImage(image.descriptor()) {
  upload(image);
}

GlImage::~GlImage() {
  try {
    const GL::ContextManager::ActivationGuard guard;
    const GL::DriverLock lock;
    glDeleteTextures(1, &m_texture);
  } catch (const GL::Error& error) {
    Log::warning(kCategory, "A texture can't be deleted: {}", error.what());
  }
}

void GlImage::upload(const MemImage& image) {
  if (image.descriptor().pixelType() != m_descriptor.pixelType() || image.channels() != m_descriptor.channels() ||
      image.descriptor().dimensions() != m_descriptor.dimensions())
    throw std::invalid_argument(fmt::format("An image of {} doesn't fit into a texture of {}",
                                            image.descriptor().toString(), m_descriptor.toString()));
  const GL::ContextManager::ActivationGuard guard;
  const GL::DriverLock lock;
  const auto transfer = [&](GLenum type, const void* data) {
    const GLenum format = transferFormat(m_descriptor);
    if (image.slices() > 1)
      KELVARIS_GL_CHECKED(glTextureSubImage3D(m_texture, 0, 0, 0, 0, image.width(), image.height(), image.slices(),
                                              format, type, data));
    else
      KELVARIS_GL_CHECKED(glTextureSubImage2D(m_texture, 0, 0, 0, image.width(), image.height(), format, type, data));
  };
  const std::size_t count = m_descriptor.elementCount();
  if (m_descriptor.pixelType() == PixelFloat) {
    transfer(GL_FLOAT, image.data());
  } else if (m_descriptor.pixelType() == PixelHalf) {
    // Rounded here, since drivers differ in how they do it.
    std::vector<Eigen::half> texels(count);
    const auto* samples = static_cast<const float*>(image.data());
    std::transform(samples, samples + count, texels.begin(), [](float sample) { return Eigen::half(sample); });
    transfer(GL_HALF_FLOAT, texels.data());
  } else {
    std::vector<float> texels(count);
    dispatchPixelType(m_descriptor.pixelType(), [&]<typename T>() {
      const auto* samples = static_cast<const T*>(image.data());
      std::transform(samples, samples + count, texels.begin(), [](T sample) { return static_cast<float>(sample); });
    });
    transfer(GL_FLOAT, texels.data());
  }
}

std::unique_ptr<MemImage> GlImage::download() const {
  std::unique_ptr<MemImage> image = MemImage::create(m_descriptor);
  const GL::ContextManager::ActivationGuard guard;
  const GL::DriverLock lock;
  const auto transfer = [&](float* data, std::size_t bytes) {
    if (bytes > static_cast<std::size_t>(std::numeric_limits<GLsizei>::max()))
      throw GL::Error(fmt::format("The texture of {} is too large to be read back", m_descriptor.toString()));
    KELVARIS_GL_CHECKED(
        glGetTextureImage(m_texture, 0, transferFormat(m_descriptor), GL_FLOAT, static_cast<GLsizei>(bytes), data));
  };
  const std::size_t count = m_descriptor.elementCount();
  if (m_descriptor.pixelType() == PixelFloat || m_descriptor.pixelType() == PixelHalf) {
    transfer(static_cast<float*>(image->data()), count * sizeof(float));
  } else {
    std::vector<float> texels(count);
    transfer(texels.data(), count * sizeof(float));
    dispatchPixelType(m_descriptor.pixelType(), [&]<typename T>() {
      std::transform(texels.begin(), texels.end(), static_cast<T*>(image->data()), fromTexel<T>);
    });
  }
  return image;
}

} // namespace Kelvaris
