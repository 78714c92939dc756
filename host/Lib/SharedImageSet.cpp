#include "Lib/SharedImageSet.h"

#include "Lib/GpuForms.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace Kelvaris {

Data::Kind SharedImageSet::kind() const {
  if (m_images.empty()) return UnknownKind;
  const bool volumes = m_volumetric || std::any_of(m_images.begin(), m_images.end(),
                                                   [](const auto& image) { return image->descriptor().slices() > 1; });
  if (m_images.size() == 1) return volumes ? OneVolume : OneImage;
  return volumes ? Volumes : Images;
}

std::shared_ptr<SharedImage> SharedImageSet::shared(int index) const {
  checkIndex(index);
  return m_images[static_cast<std::size_t>(index)];
}

void SharedImageSet::add(std::shared_ptr<SharedImage> image, double timestamp) {
  m_images.push_back(std::move(image));
  m_timestamps.push_back(timestamp);
}

void SharedImageSet::removeImages() {
  m_images.clear();
  m_timestamps.clear();
  m_elementwise = {};
}

double SharedImageSet::timestamp(int index) const {
  checkIndex(index);
  return m_timestamps[static_cast<std::size_t>(index)];
}

void SharedImageSet::setTimestamp(double milliseconds, int index) {
  checkIndex(index);
  m_timestamps[static_cast<std::size_t>(index)] = milliseconds;
}

void SharedImageSet::prepareForGpu() const {
  for (const auto& image : m_images)
    GpuForms::get().make(*image);
}

std::unique_ptr<SharedImageSet> SharedImageSet::clone(int option) const {
  auto copy = std::make_unique<SharedImageSet>();
  cloneInto(*copy, option);
  return copy;
}

void SharedImageSet::cloneInto(SharedImageSet& copy, int option) const {
  if (option != 1 && option != 3 && option != 4)
    throw std::invalid_argument(fmt::format("SharedImageSet::clone knows the options 1, 3 and 4, not {}", option));
  copy.setName(name());
  copy.m_modality = m_modality;
  copy.m_volumetric = m_volumetric;
  copy.m_components = m_components;
  copy.m_properties = m_properties;
  if (option == 4) {
    copy.m_images = m_images;
    copy.m_timestamps = m_timestamps;
    copy.m_elementwise = m_elementwise;
    copy.m_selection = m_selection;
  }
}

void SharedImageSet::checkIndex(int index) const {
  if (index < 0 || index >= size())
    throw std::out_of_range(fmt::format("There is no image {} in a set of {}", index, size()));
}

} // namespace Kelvaris
