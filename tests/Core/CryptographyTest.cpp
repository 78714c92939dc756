#include "Core/Cryptography.h"

#include <gtest/gtest.h>

#include <numeric>

namespace Kelvaris {
namespace {

namespace MonoCypher = Cryptography::MonoCypher;

MonoCypher::Key key(unsigned char first) {
  MonoCypher::Key key{};
  std::iota(key.begin(), key.end(), first);
  return key;
}

ByteBuffer fromHex(const std::string& hex) {
  ByteBuffer bytes(hex.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes.data()[i] = static_cast<char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
  return bytes;
}

TEST(MonoCypher, RoundTrip) {
  const auto stored = [](const std::string& text) {
    return MonoCypher::encrypt(ByteBufferView(text.data(), text.size()), key(1));
  };
  for (const std::string& plain : {std::string(), std::string(5000, 'x')}) {
    const auto read = MonoCypher::decrypt(stored(plain), key(1));
    EXPECT_TRUE(read && read->text() == plain);
    EXPECT_EQ(stored(plain), stored(plain)) << "reproducible";
    EXPECT_FALSE(MonoCypher::decrypt(stored(plain), key(2)));
  }
  EXPECT_NE(stored("a").text().substr(0, 24), stored("b").text().substr(0, 24)) << "every content has its own nonce";
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

} // namespace
} // namespace Kelvaris
