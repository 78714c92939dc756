#include "Stream/ImageStream.h"

#include <stdexcept>
#include <utility>

namespace Kelvaris {

ImageStreamData::ImageStreamData(std::shared_ptr<const SharedImageSet> images) : m_images(std::move(images)) {
  if (!m_images) throw std::invalid_argument("ImageStreamData needs an image set, which may be empty; got null");
}

Data::Kind ImageStreamData::streamKind() const {
  switch (m_images->kind()) {
  case Data::OneImage:
  case Data::Images:
    return Data::ImageStreamKind;
  case Data::OneVolume:
  case Data::Volumes:
    return Data::VolumeStreamKind;
  default:
    return Data::UnknownKind;
  }
}

bool ImageStreamData::containsGlImage() const {
  for (int i = 0; i < size(); ++i)
    if (m_images->get(i).hasForm(ImageForm::Gl) && !m_images->get(i).hasForm(ImageForm::Mem)) return true;
  return false;
}

ImageStream::ImageStream(std::string name) : Stream(std::move(name)) {
  setKind(ImageStreamKind);
}

ImageStream::~ImageStream() {
  closeAsync().wait();
}

} // namespace Kelvaris
