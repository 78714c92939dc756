// Tool of the build: enciphers files and writes them as the C++ source that defines EmbeddedResources::entries().
//
//   kelvaris-embed-resources OUTPUT.cpp NAME=FILE...

#include "resources/ResourceKey.h"

#include <fmt/format.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Kelvaris;

struct Argument {
  std::string name;
  std::string file;
};

Argument parse(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == 0 || equals == std::string::npos || equals + 1 == text.size())
    throw std::runtime_error(fmt::format("\"{}\" isn't NAME=FILE", text));
  return {text.substr(0, equals), text.substr(equals + 1)};
}

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::string content(std::istreambuf_iterator<char>(stream), {});
  if (!stream) throw std::runtime_error(fmt::format("{} can't be read", path));
  return content;
}

std::string arrayText(std::size_t index, const ByteBuffer& stored) {
  std::string text = fmt::format("const unsigned char kBytes{}[] = {{", index);
  for (std::size_t i = 0; i < stored.size(); ++i)
    text += fmt::format("{}{},", i % 24 == 0 ? "\n  " : "", static_cast<unsigned char>(stored.data()[i]));
  return text + "\n};\n";
}

std::string sourceText(const std::vector<Argument>& arguments) {
  const auto key = EmbeddedResources::keyBytes(EmbeddedResources::kKeyWords);
  std::string arrays;
  std::string entries;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string plain = readFile(arguments[i].file);
    arrays += arrayText(i, Cryptography::MonoCypher::encrypt(ByteBufferView(plain.data(), plain.size()), key));
    entries += fmt::format("    {{\"{}\", {{reinterpret_cast<const char*>(kBytes{}), sizeof(kBytes{})}}}},\n",
                           arguments[i].name, i, i);
  }
  return fmt::format("#include \"resources/EmbeddedResources.h\"\n\n"
                     "#include <array>\n\n"
                     "namespace Kelvaris::EmbeddedResources {{\n"
                     "namespace {{\n{}}} // namespace\n\n"
                     "std::span<const Entry> entries() {{\n"
                     "  static const std::array<Entry, {}> all{{{{\n{}  }}}};\n"
                     "  return all;\n"
                     "}}\n\n"
                     "}} // namespace Kelvaris::EmbeddedResources\n",
                     arrays, arguments.size(), entries);
}

} // namespace

int main(int argc, char** argv) {
  try {
    if (argc < 3) throw std::runtime_error("usage: kelvaris-embed-resources OUTPUT.cpp NAME=FILE...");
    std::vector<Argument> arguments;
    for (int i = 2; i < argc; ++i)
      arguments.push_back(parse(argv[i]));
    const std::string text = sourceText(arguments);
    std::ofstream output(argv[1], std::ios::binary);
    output << text;
    output.close();
    if (!output) throw std::runtime_error(fmt::format("{} can't be written", argv[1]));
    return 0;
  } catch (const std::exception& error) {
    fmt::print(stderr, "kelvaris-embed-resources: {}\n", error.what());
    return 1;
  }
}
