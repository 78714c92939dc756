#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::Tests {

/// Makes broken variants of valid inputs. The same seed gives the same variants.
class Mutator {
public:
  /// `words` are pieces of the language of the inputs, which random bytes would hardly ever hit.
  Mutator(std::vector<std::string> inputs, std::vector<std::string> words, std::uint32_t seed)
      : m_inputs(std::move(inputs)), m_words(std::move(words)), m_random(seed) {}

  /// One input with one to eight changes: bits, bytes, numbers, pieces removed, repeated, moved in from another input.
  std::string next() {
    std::string bytes = m_inputs[below(m_inputs.size())];
    for (std::size_t changes = 1 + below(8); changes > 0; --changes)
      change(bytes);
    return bytes;
  }

private:
  std::size_t below(std::size_t limit) { return limit == 0 ? 0 : m_random() % limit; }
  void change(std::string& bytes) {
    constexpr std::size_t longestPiece = 64;
    const std::size_t at = below(bytes.size());
    const std::size_t length = std::min(1 + below(longestPiece), bytes.size() - at);
    switch (below(8)) {
    case 0:
      if (!bytes.empty()) bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
      break;
    case 1:
      if (!bytes.empty()) bytes[at] = static_cast<char>(m_random());
      break;
    case 2: { // a little-endian number at the edge of its range
      static constexpr std::uint64_t edges[] = {0,      1,          0x7F,       0x80,       0xFF,       0x7FFF,
                                                0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 1ULL << 40, ~0ULL};
      const std::uint64_t value = edges[below(std::size(edges))];
      const std::size_t width = std::min(std::size_t(1) << below(4), bytes.size() - at);
      for (std::size_t i = 0; i < width; ++i)
        bytes[at + i] = static_cast<char>(value >> (8 * i));
      break;
    }
    case 3:
      bytes.erase(at, length);
      break;
    case 4: {
      const std::string piece = bytes.substr(at, length);
      for (std::size_t times = 1 + below(20); times > 0; --times)
        bytes.insert(at, piece);
      break;
    }
    case 5: {
      const std::string& other = m_inputs[below(m_inputs.size())];
      bytes.insert(at, other.substr(below(other.size()), length));
      break;
    }
    case 6:
      if (!m_words.empty()) bytes.insert(at, m_words[below(m_words.size())]);
      break;
    default:
      if (below(4) == 0) bytes.resize(at);
    }
  }

  std::vector<std::string> m_inputs;
  std::vector<std::string> m_words;
  std::mt19937 m_random;
};

} // namespace Kelvaris::Tests
