#include "Stream/ImageStream.h"

#include <stdexcept>
#include <utility>

namespace Kelvaris {

ImageStreamData::ImageStreamData(std::shared_ptr<const SharedImageSet> images) : m_images(std::move(images)) {
  if (!m_images) throw std::invalid_argument("ImageStreamData needs an image set, which may be empty; got null");
}

ImageStream::ImageStream(std::string name) : Stream(std::move(name)) {
  setKind(ImageStreamKind);
}

} // namespace Kelvaris
