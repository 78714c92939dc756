#include "Lib/SampleFileFormats.h"

#include <charconv>
#include <fstream>
#include <map>

namespace Kelvaris {
namespace {

/// A .npy file: magic, version, length of the header, and the header, a Python dictionary such as
/// {'descr': '<i2', 'fortran_order': False, 'shape': (32, 32, 1750), }
class NumpyFile : public SampleFile {
public:
  explicit NumpyFile(const std::filesystem::path& path) : SampleFile(path) {
    std::ifstream stream(path, std::ios::binary);
    unsigned char fixed[12] = {};
    stream.read(reinterpret_cast<char*>(fixed), 10);
    const bool wide = fixed[6] >= 2; // since version 2 the length has four bytes
    if (wide) stream.read(reinterpret_cast<char*>(fixed + 10), 2);
    std::size_t length = fixed[8] | std::size_t{fixed[9]} << 8;
    if (wide) length |= std::size_t{fixed[10]} << 16 | std::size_t{fixed[11]} << 24;
    constexpr std::size_t kLongestHeader = 1 << 16;
    if (!stream || length > kLongestHeader) fail("the NumPy header is broken or truncated");
    std::string header(length, '\0');
    stream.read(header.data(), static_cast<std::streamsize>(length));
    if (!stream) fail("the NumPy header is truncated");
    m_headerBytes = (wide ? 12 : 10) + length;
    parse(header);
  }

  std::vector<Variable> variables() const override { return {m_variable}; }

protected:
  std::unique_ptr<SampleArray> openArray(const Variable& variable, SampleType type) const override {
    return openBinarySamples(path(), type, variable.shape, m_firstIndexFastest, m_headerBytes, m_bigEndian);
  }

private:
  void parse(const std::string& header) {
    const auto after = [&](const std::string& key) {
      const auto at = header.find("'" + key + "':");
      if (at == std::string::npos) fail("the NumPy header has no '" + key + "': " + header);
      return header.find_first_not_of(' ', at + key.size() + 3);
    };

    static const std::map<std::string, SampleType> kTypes = {
        {"i1", SampleType::Int8},  {"u1", SampleType::UInt8},  {"i2", SampleType::Int16}, {"u2", SampleType::UInt16},
        {"i4", SampleType::Int32}, {"u4", SampleType::UInt32}, {"i8", SampleType::Int64}, {"u8", SampleType::UInt64},
        {"f4", SampleType::Float}, {"f8", SampleType::Double}};
    const auto quote = after("descr");
    const auto end = header.find('\'', quote + 1);
    if (end == std::string::npos || end < quote + 3) fail("the NumPy header is broken: " + header);
    const std::string descr = header.substr(quote + 1, end - quote - 1);
    m_bigEndian = descr[0] == '>';
    const auto type = kTypes.find(descr.substr(1));
    m_variable.type = type == kTypes.end() ? "'" + descr + "'" : sampleTypeName(type->second);

    m_firstIndexFastest = header.compare(after("fortran_order"), 4, "True") == 0;

    const auto open = after("shape");
    const auto close = header.find(')', open);
    if (header[open] != '(' || close == std::string::npos) fail("the NumPy header is broken: " + header);
    for (const char *at = header.data() + open + 1, *last = header.data() + close; at < last;) {
      std::size_t extent = 0;
      const auto [next, status] = std::from_chars(at, last, extent);
      if (status != std::errc()) fail("the shape in the NumPy header is broken: " + header);
      m_variable.shape.push_back(extent);
      for (at = next; at < last && (*at == ',' || *at == ' ');)
        ++at;
    }
    m_variable.name = "array";
  }

  Variable m_variable;
  std::size_t m_headerBytes = 0;
  bool m_firstIndexFastest = false;
  bool m_bigEndian = false;
};

} // namespace

std::unique_ptr<SampleFile> openNumpyFile(const std::filesystem::path& path) {
  return std::make_unique<NumpyFile>(path);
}

} // namespace Kelvaris
