#include "Lib/AlgorithmFactory.h"

#include "Core/Log.h"

#include <algorithm>

namespace Kelvaris {

std::string AlgorithmFactory::Descriptor::displayName() const {
  return category.substr(category.rfind(';') + 1);
}

bool AlgorithmFactory::Descriptor::isNamed(std::string_view name) const {
  return id == name || displayName() == name || std::find(aliases.begin(), aliases.end(), name) != aliases.end();
}

std::optional<AlgorithmFactory::Descriptor> AlgorithmFactory::algorithmDescriptor(std::string_view id) const {
  for (const Descriptor& descriptor : m_descriptors)
    if (descriptor.id == id) return descriptor;
  return std::nullopt;
}

std::vector<AlgorithmFactory::Descriptor> AlgorithmFactory::compatibleDescriptors(const DataList& data) const {
  std::vector<Descriptor> compatible;
  std::copy_if(m_descriptors.begin(), m_descriptors.end(), std::back_inserter(compatible),
               [&](const Descriptor& descriptor) { return descriptor.isCompatible(data); });
  return compatible;
}

std::unique_ptr<Algorithm> AlgorithmFactory::instantiateAlgorithm(std::string_view id, const DataList& data) const {
  const auto descriptor = algorithmDescriptor(id);
  return descriptor ? descriptor->create(data) : nullptr;
}

std::string AlgorithmFactory::idOf(std::type_index type) const {
  const auto found = m_idByType.find(type);
  return found == m_idByType.end() ? std::string() : found->second;
}

void AlgorithmFactory::registerAlgorithm(std::type_index type, const std::string& id, const std::string& category,
                                         int attributes, std::optional<Properties> properties,
                                         CreateCompatible createCompatible) {
  Descriptor descriptor;
  descriptor.id = m_name + "." + id;
  if (algorithmDescriptor(descriptor.id)) {
    Log::warning("AlgorithmFactory", "Algorithm already registered: {}", descriptor.id);
    return;
  }
  descriptor.category = category;
  descriptor.attributes = attributes;
  descriptor.properties = std::move(properties);
  descriptor.isCompatible = [createCompatible](const DataList& data) { return createCompatible(data, nullptr); };
  descriptor.create = [createCompatible, fullId = descriptor.id, displayName = descriptor.displayName(),
                       settings = descriptor.properties](const DataList& data) -> std::unique_ptr<Algorithm> {
    Algorithm* created = nullptr;
    createCompatible(data, &created);
    std::unique_ptr<Algorithm> algorithm(created);
    if (!algorithm) return nullptr;
    algorithm->setFactoryInfo({fullId, displayName, {data.begin(), data.end()}});
    if (settings) algorithm->configure(&*settings);
    return algorithm;
  };
  m_idByType.emplace(type, descriptor.id);
  m_descriptors.push_back(std::move(descriptor));
}

void AlgorithmFactory::addAlias(const std::string& id, const std::string& alias) {
  const std::string fullId = m_name + "." + id;
  const auto found = std::find_if(m_descriptors.begin(), m_descriptors.end(),
                                  [&](const Descriptor& descriptor) { return descriptor.id == fullId; });
  if (found == m_descriptors.end())
    Log::warning("AlgorithmFactory", "No algorithm {} to be given the name \"{}\"", fullId, alias);
  else
    found->aliases.push_back(alias);
}

} // namespace Kelvaris
