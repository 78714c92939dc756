#pragma once

#include "Core/ByteBuffer.h"

#include <span>
#include <string_view>

namespace Kelvaris::EmbeddedResources {

/// A resource in its stored form: enciphered with the key of ResourceKey.h when the library was built.
struct Entry {
  std::string_view name;
  ByteBufferView stored;
};

/// All resources of this folder. The bytes are read-only data of the library. The definition is written by
/// EmbedResources.
std::span<const Entry> entries();

} // namespace Kelvaris::EmbeddedResources
