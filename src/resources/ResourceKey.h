#pragma once

#include "Core/Cryptography.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Kelvaris::EmbeddedResources {

/// The key of this build's resources. It keeps them from being read or changed by accident and is no secret: whoever
/// has the library has the key.
inline constexpr std::array<std::uint64_t, 4> kKeyWords = {0x9d1fb2a64c07e835, 0x2b68f05d91ce437a, 0xe4537c8a160fd9b2,
                                                           0x70a9d34ec8b5216f};

/// The words as bytes, least significant byte of each word first.
inline Cryptography::MonoCypher::Key keyBytes(const std::array<std::uint64_t, 4>& words) {
  Cryptography::MonoCypher::Key key{};
  for (std::size_t i = 0; i < key.size(); ++i)
    key[i] = static_cast<unsigned char>(words[i / 8] >> (8 * (i % 8)));
  return key;
}

} // namespace Kelvaris::EmbeddedResources
