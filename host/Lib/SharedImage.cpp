#include "Lib/SharedImage.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris {

SharedImage::SharedImage(std::shared_ptr<Image> image) : m_descriptor(image->descriptor()) {
  m_forms[static_cast<std::size_t>(image->imageForm())] = std::move(image);
}

SharedImage::SharedImage(const ImageDescriptor& descriptor) : m_descriptor(descriptor) {}

std::shared_ptr<MemImage> SharedImage::mem() const {
  const std::scoped_lock lock(m_mutex);
  return memLocked();
}

std::shared_ptr<MemImage> SharedImage::temporaryMem() const {
  const std::scoped_lock lock(m_mutex);
  return temporaryMemLocked();
}

std::shared_ptr<MemImage> SharedImage::memLocked() const {
  auto& mem = m_forms[static_cast<std::size_t>(ImageForm::Mem)];
  if (!mem) mem = temporaryMemLocked();
  return std::static_pointer_cast<MemImage>(mem);
}

std::shared_ptr<MemImage> SharedImage::temporaryMemLocked() const {
  if (const auto& mem = m_forms[static_cast<std::size_t>(ImageForm::Mem)])
    return std::static_pointer_cast<MemImage>(mem);
  for (const auto& other : m_forms)
    if (other) return other->download();
  throw std::runtime_error(fmt::format("The image ({}) has no pixels", m_descriptor.toString()));
}

bool SharedImage::hasForm(ImageForm form) const {
  const std::scoped_lock lock(m_mutex);
  return m_forms[static_cast<std::size_t>(form)] != nullptr;
}

void SharedImage::assign(std::shared_ptr<Image> image) {
  const std::scoped_lock lock(m_mutex);
  m_descriptor = image->descriptor();
  m_forms.fill(nullptr);
  m_forms[static_cast<std::size_t>(image->imageForm())] = std::move(image);
}

void SharedImage::keepOnly(ImageForm form) {
  const std::scoped_lock lock(m_mutex);
  if (!m_forms[static_cast<std::size_t>(form)]) return;
  for (std::size_t i = 0; i < m_forms.size(); ++i)
    if (i != static_cast<std::size_t>(form)) m_forms[i].reset();
}

std::unique_ptr<SharedImage> SharedImage::clone(int option) const {
  if (option != 1 && option != 4)
    throw std::invalid_argument(fmt::format("SharedImage::clone knows the options 1 and 4, not {}", option));
  auto copy = std::make_unique<SharedImage>(m_descriptor);
  copy->m_mask = m_mask;
  copy->m_modality = m_modality;
  copy->m_matrix = m_matrix;
  if (option == 1) copy->assign(mem()->clone());
  return copy;
}

} // namespace Kelvaris
