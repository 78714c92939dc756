#pragma once

#include "Lib/DataComponent.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Kelvaris {

/// Makes data components by their stored ids. Thread-safe.
class DataComponentFactory {
public:
  using Creator = std::function<std::unique_ptr<DataComponentBase>()>;

  static DataComponentFactory& get();

  /// A second registration of an id replaces the first.
  void registerComponent(const std::string& id, Creator creator);
  void unregisterComponent(const std::string& id);
  /// Null for an unknown id.
  std::unique_ptr<DataComponentBase> create(const std::string& id) const;

private:
  mutable std::mutex m_mutex;
  std::map<std::string, Creator> m_creators;
};

} // namespace Kelvaris
