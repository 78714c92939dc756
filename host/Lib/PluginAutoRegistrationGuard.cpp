#include "Lib/PluginAutoRegistrationGuard.h"

#include <map>
#include <mutex>

namespace Kelvaris {
namespace {

struct Guards {
  std::mutex mutex;
  std::map<const PluginAutoRegistrationGuard*, std::string> ids;
};

Guards& guards() {
  static Guards instance;
  return instance;
}

} // namespace

PluginAutoRegistrationGuard::PluginAutoRegistrationGuard(const char* (*id)()) {
  const std::scoped_lock lock(guards().mutex);
  guards().ids[this] = id();
}

PluginAutoRegistrationGuard::~PluginAutoRegistrationGuard() {
  const std::scoped_lock lock(guards().mutex);
  guards().ids.erase(this);
}

std::vector<std::string> PluginAutoRegistrationGuard::presentIds() {
  const std::scoped_lock lock(guards().mutex);
  std::vector<std::string> ids;
  for (const auto& [guard, id] : guards().ids)
    ids.push_back(id);
  return ids;
}

} // namespace Kelvaris
