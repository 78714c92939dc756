#pragma once

#include "Core/ByteBuffer.h"

#include <array>
#include <optional>

/// Authenticated encryption of byte buffers: XChaCha20-Poly1305 (libsodium). The stored form is the 24 bytes of the
/// nonce followed by the ciphertext with its 16-byte tag, 40 bytes longer than the plain content.
namespace Kelvaris::Cryptography::MonoCypher {

using Key = std::array<unsigned char, 32>;

/// The plain content of a stored form, or nothing if the data is too short, was changed, or was enciphered with another
/// key.
std::optional<ByteBuffer> decrypt(const ByteBufferView& stored, const Key& key);

/// The stored form of `plain`. The nonce is a keyed hash of the content, so equal content gives equal bytes and builds
/// that embed it are reproducible.
ByteBuffer encrypt(const ByteBufferView& plain, const Key& key);

} // namespace Kelvaris::Cryptography::MonoCypher
