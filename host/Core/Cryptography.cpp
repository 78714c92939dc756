#include "Core/Cryptography.h"

#include <sodium.h>

#include <stdexcept>

namespace Kelvaris::Cryptography::MonoCypher {
namespace {

constexpr std::size_t kNonceBytes = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagBytes = crypto_aead_xchacha20poly1305_ietf_ABYTES;
static_assert(sizeof(Key) == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);

bool initialized() {
  static const bool ok = sodium_init() >= 0;
  return ok;
}

unsigned char* bytes(ByteBuffer& buffer) {
  return reinterpret_cast<unsigned char*>(buffer.data());
}
const unsigned char* bytes(const ByteBufferView& view) {
  return reinterpret_cast<const unsigned char*>(view.data());
}

} // namespace

std::optional<ByteBuffer> decrypt(const ByteBufferView& stored, const Key& key) {
  if (stored.size() < kNonceBytes + kTagBytes || !initialized()) return std::nullopt;
  ByteBuffer plain(stored.size() - kNonceBytes - kTagBytes);
  const unsigned char* nonce = bytes(stored);
  if (crypto_aead_xchacha20poly1305_ietf_decrypt(bytes(plain), nullptr, nullptr, nonce + kNonceBytes,
                                                 stored.size() - kNonceBytes, nullptr, 0, nonce, key.data()) != 0)
    return std::nullopt;
  return plain;
}

ByteBuffer encrypt(const ByteBufferView& plain, const Key& key) {
  if (!initialized()) throw std::runtime_error("libsodium could not be initialised");
  ByteBuffer stored(kNonceBytes + plain.size() + kTagBytes);
  unsigned char* nonce = bytes(stored);
  crypto_generichash(nonce, kNonceBytes, bytes(plain), plain.size(), key.data(), key.size());
  crypto_aead_xchacha20poly1305_ietf_encrypt(nonce + kNonceBytes, nullptr, bytes(plain), plain.size(), nullptr, 0,
                                             nullptr, nonce, key.data());
  return stored;
}

} // namespace Kelvaris::Cryptography::MonoCypher
