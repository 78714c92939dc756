#pragma once

#include "Lib/ImageDescriptor.h"
#include "Lib/Mask.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Kelvaris {

/// Makes masks by their ids, for readers of files. Thread-safe.
class MaskFactory {
public:
  /// Makes a mask from its configuration() and the descriptor of its image; null or an exception where they are wrong.
  using Creator = std::function<std::shared_ptr<const Mask>(const Properties&, const ImageDescriptor&)>;

  static MaskFactory& get();

  /// A second registration of an id replaces the first.
  void registerMask(const std::string& id, Creator creator);
  void unregisterMask(const std::string& id);

  /// An empty function for an unknown id.
  Creator creator(const std::string& id) const;

private:
  mutable std::mutex m_mutex;
  std::map<std::string, Creator> m_creators;
};

} // namespace Kelvaris
