#include "Lib/DataComponentFactory.h"

namespace Kelvaris {

DataComponentFactory& DataComponentFactory::get() {
  static DataComponentFactory factory;
  return factory;
}

void DataComponentFactory::registerComponent(const std::string& id, Creator creator) {
  const std::scoped_lock lock(m_mutex);
  m_creators[id] = std::move(creator);
}

void DataComponentFactory::unregisterComponent(const std::string& id) {
  const std::scoped_lock lock(m_mutex);
  m_creators.erase(id);
}

std::unique_ptr<DataComponentBase> DataComponentFactory::create(const std::string& id) const {
  Creator creator;
  {
    const std::scoped_lock lock(m_mutex);
    if (const auto found = m_creators.find(id); found != m_creators.end()) creator = found->second;
  }
  return creator ? creator() : nullptr;
}

} // namespace Kelvaris
