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

  /// While a scope lives, registrations on its thread belong to `owner`.
  class OwnerScope {
  public:
    explicit OwnerScope(const void* owner);
    ~OwnerScope();
    OwnerScope(const OwnerScope&) = delete;
    OwnerScope& operator=(const OwnerScope&) = delete;

  private:
    const void* m_outer;
  };
  void unregisterComponentsOf(const void* owner);
  /// Null for an unknown id.
  std::unique_ptr<DataComponentBase> create(const std::string& id) const;

private:
  mutable std::mutex m_mutex;
  struct Entry {
    Creator creator;
    const void* owner;
  };
  std::map<std::string, Entry> m_entries;
};

} // namespace Kelvaris
