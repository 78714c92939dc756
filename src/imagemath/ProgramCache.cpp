#include "imagemath/ProgramCache.h"

#include <algorithm>
#include <utility>

namespace Kelvaris::ImageMath::internal {

ProgramCache::Lease::~Lease() {
  m_cache->put(std::move(m_text), std::move(m_program));
}

ProgramCache& ProgramCache::shared() {
  static ProgramCache cache(64);
  return cache;
}

ProgramCache::Lease ProgramCache::get(const std::string& text) {
  {
    const std::scoped_lock lock(m_mutex);
    const auto found =
        std::find_if(m_idle.begin(), m_idle.end(), [&](const Entry& entry) { return entry.text == text; });
    if (found != m_idle.end()) {
      auto program = std::move(found->program);
      m_idle.erase(found);
      return {*this, text, std::move(program)};
    }
    ++m_compilations;
  }
  return {*this, text, GL::ImageProgram::createFromText("of an expression", text)};
}

std::size_t ProgramCache::compilations() const {
  const std::scoped_lock lock(m_mutex);
  return m_compilations;
}

void ProgramCache::put(std::string text, std::unique_ptr<GL::ImageProgram> program) {
  std::list<Entry> dropped; // deleted without the lock
  const std::scoped_lock lock(m_mutex);
  m_idle.push_front({std::move(text), std::move(program)});
  while (m_idle.size() > m_limit)
    dropped.splice(dropped.begin(), m_idle, std::prev(m_idle.end()));
}

} // namespace Kelvaris::ImageMath::internal
