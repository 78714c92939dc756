#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace Kelvaris::Tests {

/// Makes broken variants of valid inputs. The same seed gives the same variants.
class Mutator {
public:
  /// `words` are pieces of the language of the inputs, which random bytes would hardly ever hit.
  Mutator(std::vector<std::string> inputs, std::vector<std::string> words, std::uint32_t seed);

  /// One input with one to eight changes: bits, bytes, numbers, pieces removed, repeated, moved in from another input.
  std::string next();

private:
  std::size_t below(std::size_t limit) { return limit == 0 ? 0 : m_random() % limit; }
  void change(std::string& bytes);

  std::vector<std::string> m_inputs;
  std::vector<std::string> m_words;
  std::mt19937 m_random;
};

} // namespace Kelvaris::Tests
