#include "Lib/FactoryRegistry.h"

#include <stdexcept>
#include <utility>

namespace Kelvaris {

FactoryRegistry& FactoryRegistry::get() {
  static FactoryRegistry registry;
  return registry;
}

void FactoryRegistry::add(std::unique_ptr<AlgorithmFactory> algorithms,
                          std::unique_ptr<AlgorithmControllerFactory> controllers, const void* owner) {
  const std::scoped_lock lock(m_mutex);
  m_entries.push_back({owner, std::move(algorithms), std::move(controllers)});
}

void FactoryRegistry::remove(const void* owner) {
  const std::scoped_lock lock(m_mutex);
  std::erase_if(m_entries, [&](const Entry& entry) { return entry.owner == owner; });
}

std::vector<FactoryRegistry::Entry> FactoryRegistry::entries() const {
  const std::scoped_lock lock(m_mutex);
  return m_entries;
}

std::vector<AlgorithmFactory::Descriptor> FactoryRegistry::algorithmDescriptors() const {
  std::vector<AlgorithmFactory::Descriptor> all;
  for (const Entry& entry : entries())
    if (entry.algorithms)
      for (AlgorithmFactory::Descriptor& descriptor : entry.algorithms->algorithmDescriptors())
        all.push_back(std::move(descriptor));
  return all;
}

std::vector<AlgorithmFactory::Descriptor> FactoryRegistry::compatibleDescriptors(const DataList& data) const {
  std::vector<AlgorithmFactory::Descriptor> all = algorithmDescriptors();
  std::erase_if(all, [&](const AlgorithmFactory::Descriptor& descriptor) { return !descriptor.isCompatible(data); });
  return all;
}

std::vector<AlgorithmFactory::Descriptor> FactoryRegistry::descriptorsNamed(std::string_view name) const {
  std::vector<AlgorithmFactory::Descriptor> all = algorithmDescriptors();
  std::erase_if(all, [&](const AlgorithmFactory::Descriptor& descriptor) { return !descriptor.isNamed(name); });
  return all;
}

std::optional<AlgorithmFactory::Descriptor> FactoryRegistry::algorithmDescriptor(std::string_view id,
                                                                                 bool orDisplayName) const {
  const std::vector<AlgorithmFactory::Descriptor> all = algorithmDescriptors();
  for (const auto& descriptor : all)
    if (descriptor.id == id) return descriptor;
  if (orDisplayName)
    for (const auto& descriptor : all)
      if (descriptor.displayName() == id) return descriptor;
  return std::nullopt;
}

void FactoryRegistry::setDefaultControllerMaker(ControllerMaker maker) {
  const std::scoped_lock lock(m_mutex);
  m_defaultControllerMaker = std::move(maker);
}

std::unique_ptr<AlgorithmController> FactoryRegistry::createAlgorithmController(Algorithm* algorithm) const {
  if (!algorithm) throw std::invalid_argument("A controller needs an algorithm; got null");
  for (const Entry& entry : entries())
    if (entry.controllers)
      if (auto controller = entry.controllers->create(algorithm)) return controller;
  const ControllerMaker makeDefault = [this] {
    const std::scoped_lock lock(m_mutex);
    return m_defaultControllerMaker;
  }();
  return makeDefault ? makeDefault(algorithm) : nullptr;
}

} // namespace Kelvaris
