#pragma once

#include <compare>
#include <string>

namespace Kelvaris::Utils {

/// A version of three numbers, of which the first weighs most.
struct Version {
  int major = 0;
  int minor = 0;
  int patch = 0;

  /// For example "4.5.0".
  std::string toString() const {
    return std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(patch);
  }
  auto operator<=>(const Version&) const = default;
};

} // namespace Kelvaris::Utils
