#include "Lib/MaskFactory.h"

namespace Kelvaris {

MaskFactory& MaskFactory::get() {
  static MaskFactory factory;
  return factory;
}

void MaskFactory::registerMask(const std::string& id, Creator creator) {
  const std::scoped_lock lock(m_mutex);
  m_creators[id] = std::move(creator);
}

void MaskFactory::unregisterMask(const std::string& id) {
  const std::scoped_lock lock(m_mutex);
  m_creators.erase(id);
}

MaskFactory::Creator MaskFactory::creator(const std::string& id) const {
  const std::scoped_lock lock(m_mutex);
  const auto found = m_creators.find(id);
  return found == m_creators.end() ? Creator() : found->second;
}

} // namespace Kelvaris
