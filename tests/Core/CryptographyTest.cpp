#include "Core/Cryptography.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string>

namespace Kelvaris {
namespace {

namespace MonoCypher = Cryptography::MonoCypher;

MonoCypher::Key key(unsigned char first) {
  MonoCypher::Key key{};
  std::iota(key.begin(), key.end(), first);
  return key;
}

ByteBuffer buffer(const std::string& text) {
  return ByteBufferView(text.data(), text.size()).copy();
}

ByteBuffer fromHex(const std::string& hex) {
  ByteBuffer bytes(hex.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes.data()[i] = static_cast<char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
  return bytes;
}

TEST(MonoCypher, RoundTrip) {
  for (const std::size_t size : {0u, 64u, 5000u}) {
    const ByteBuffer plain = buffer(std::string(size, 'x'));
    const ByteBuffer stored = MonoCypher::encrypt(plain, key(1));
    EXPECT_EQ(stored.text().find("xxxxxxxx"), std::string_view::npos);
    EXPECT_EQ(MonoCypher::decrypt(stored, key(1)), plain);
    EXPECT_EQ(MonoCypher::encrypt(plain, key(1)), stored) << "reproducible";
    EXPECT_FALSE(MonoCypher::decrypt(stored, key(2)));
  }
  EXPECT_NE(MonoCypher::encrypt(buffer("a"), key(1)).text().substr(0, 24),
            MonoCypher::encrypt(buffer("b"), key(1)).text().substr(0, 24))
      << "a nonce of its own for every content";
}

// Made with a separate implementation: HChaCha20 written in Python and checked against section 2.2.1 of
// draft-irtf-cfrg-xchacha-03, then ChaCha20-Poly1305 of RFC 8439 from OpenSSL.
TEST(MonoCypher, DeciphersWhatAnotherImplementationEnciphered) {
  const auto plain = MonoCypher::decrypt(fromHex("404142434445464748494a4b4c4d4e4f5051525354555657"
                                                 "febe5478d01a8960e4deccc129edef5b67c385e7338d868a9aa528169184"),
                                         key(9));
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->text(), "void main() {}");
}

TEST(MonoCypher, RefusesEveryChangedOrMissingByte) {
  const ByteBuffer stored = MonoCypher::encrypt(buffer("uniform float u_depth;"), key(9));
  for (std::size_t i = 0; i < stored.size(); ++i) {
    ByteBuffer changed = stored;
    changed.data()[i] = static_cast<char>(changed.data()[i] ^ 1);
    EXPECT_FALSE(MonoCypher::decrypt(changed, key(9))) << "byte " << i;
    EXPECT_FALSE(MonoCypher::decrypt(ByteBufferView(stored.data(), i), key(9))) << "first " << i << " bytes";
  }
}

} // namespace
} // namespace Kelvaris
