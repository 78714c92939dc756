#pragma once

#include "Core/Properties.h"

#include <string>

namespace Kelvaris::US {

/// Reads `key` if it is there; a missing key leaves `value` as it is. Returns false only for a value that is there but
/// can't be read as a T (which the host logs).
template <typename T> bool readIfPresent(const Properties& properties, const std::string& key, T& value) {
  return !properties.hasParam(key) || properties.param(key, value);
}

} // namespace Kelvaris::US
