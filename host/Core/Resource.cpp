#include "Core/Resource.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <vector>

namespace Kelvaris::Resource {
namespace {

struct Registry {
  std::shared_mutex mutex;
  std::vector<const Repository*> repositories;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

} // namespace

void addRepository(const Repository* repository) {
  if (!repository) return;
  Registry& all = registry();
  const std::scoped_lock lock(all.mutex);
  if (std::find(all.repositories.begin(), all.repositories.end(), repository) == all.repositories.end())
    all.repositories.push_back(repository);
}

void removeRepository(const Repository* repository) {
  Registry& all = registry();
  const std::scoped_lock lock(all.mutex);
  std::erase(all.repositories, repository);
}

std::optional<ByteBuffer> query(std::string_view path) {
  const std::size_t slash = path.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  return query(path.substr(0, slash), path.substr(slash + 1));
}

std::optional<ByteBuffer> query(std::string_view repository, std::string_view name) {
  Registry& all = registry();
  const std::shared_lock lock(all.mutex);
  for (const Repository* candidate : all.repositories)
    if (candidate->name() == repository && candidate->contains(name)) return candidate->query(name);
  return std::nullopt;
}

} // namespace Kelvaris::Resource
