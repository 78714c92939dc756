#include "Lib/DataComponentFactory.h"

namespace Kelvaris {
namespace {

thread_local const void* t_owner = nullptr;

} // namespace

DataComponentFactory::OwnerScope::OwnerScope(const void* owner) : m_outer(t_owner) {
  t_owner = owner;
}

DataComponentFactory::OwnerScope::~OwnerScope() {
  t_owner = m_outer;
}

DataComponentFactory& DataComponentFactory::get() {
  static DataComponentFactory factory;
  return factory;
}

void DataComponentFactory::registerComponent(const std::string& id, Creator creator) {
  const std::scoped_lock lock(m_mutex);
  m_entries[id] = {std::move(creator), t_owner};
}

void DataComponentFactory::unregisterComponent(const std::string& id) {
  const std::scoped_lock lock(m_mutex);
  m_entries.erase(id);
}

void DataComponentFactory::unregisterComponentsOf(const void* owner) {
  const std::scoped_lock lock(m_mutex);
  std::erase_if(m_entries, [&](const auto& entry) { return entry.second.owner == owner; });
}

std::unique_ptr<DataComponentBase> DataComponentFactory::create(const std::string& id) const {
  Creator creator;
  {
    const std::scoped_lock lock(m_mutex);
    if (const auto found = m_entries.find(id); found != m_entries.end()) creator = found->second.creator;
  }
  return creator ? creator() : nullptr;
}

} // namespace Kelvaris
