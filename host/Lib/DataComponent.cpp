#include "Lib/DataComponent.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris {

DataComponentList::DataComponentList(const DataComponentList& other) {
  m_components.reserve(other.m_components.size());
  for (const auto& component : other.m_components)
    m_components.push_back(component->clone());
}

DataComponentList& DataComponentList::operator=(const DataComponentList& other) {
  if (this != &other) *this = DataComponentList(other);
  return *this;
}

DataComponentBase& DataComponentList::add(std::unique_ptr<DataComponentBase> component) {
  for (auto& present : m_components) {
    const DataComponentBase& a = *present;
    const DataComponentBase& b = *component;
    if (typeid(a) == typeid(b) && a.id() == b.id()) {
      present = std::move(component);
      return *present;
    }
  }
  return *m_components.emplace_back(std::move(component));
}

void DataComponentList::add(const DataComponentList& other) {
  for (const auto& component : other)
    add(component->clone());
}

const DataComponentList& ElementwiseDataComponentList::components(int index) const {
  static const DataComponentList empty;
  if (index < 0) throw std::out_of_range(fmt::format("There are no components of image {}", index));
  return static_cast<std::size_t>(index) < m_lists.size() ? m_lists[static_cast<std::size_t>(index)] : empty;
}

DataComponentList& ElementwiseDataComponentList::components(int index) {
  if (index < 0) throw std::out_of_range(fmt::format("There are no components of image {}", index));
  if (static_cast<std::size_t>(index) >= m_lists.size()) m_lists.resize(static_cast<std::size_t>(index) + 1);
  return m_lists[static_cast<std::size_t>(index)];
}

} // namespace Kelvaris
