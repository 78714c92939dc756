#include "Lib/SampleFileFormats.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <fstream>
#include <mutex>
#include <stdexcept>

namespace Kelvaris {
namespace {

static_assert(std::endian::native == std::endian::little);

class BinarySampleArray : public ContiguousSampleArray {
public:
  BinarySampleArray(std::filesystem::path path, SampleType type, Extents shape, bool firstIndexFastest,
                    std::size_t headerBytes, bool bigEndian)
      : ContiguousSampleArray(type, std::move(shape), firstIndexFastest),
        m_path(std::move(path)),
        m_stream(m_path, std::ios::binary),
        m_headerBytes(headerBytes),
        m_bigEndian(bigEndian) {
    std::error_code error;
    const auto fileBytes = std::filesystem::file_size(m_path, error);
    if (error || !m_stream) throw std::runtime_error(fmt::format("{} can't be read", m_path.string()));
    const std::size_t needed = headerBytes + shapeBytes(this->shape(), type);
    if (fileBytes != needed)
      throw std::runtime_error(fmt::format(
          "{} has {} bytes, but {} samples of shape {}{} take {}: {}", m_path.string(), fileBytes, sampleTypeName(type),
          shapeText(this->shape()), headerBytes ? fmt::format(" after a header of {} bytes", headerBytes) : "", needed,
          fileBytes < needed ? "it is truncated, or shape and type are not those of the file"
                             : "shape and type are not those of the file"));
  }

protected:
  void readRun(std::size_t first, std::size_t count, std::byte* samples) const override {
    const std::size_t width = sampleBytes(type());
    {
      const std::scoped_lock lock(m_mutex);
      m_stream.seekg(static_cast<std::streamoff>(m_headerBytes + first * width));
      m_stream.read(reinterpret_cast<char*>(samples), static_cast<std::streamsize>(count * width));
      if (!m_stream)
        throw std::runtime_error(
            fmt::format("{} can't be read at byte {}", m_path.string(), m_headerBytes + first * width));
    }
    if (m_bigEndian)
      for (std::size_t i = 0; i < count; ++i)
        std::reverse(samples + i * width, samples + (i + 1) * width);
  }

private:
  std::filesystem::path m_path;
  mutable std::mutex m_mutex;
  mutable std::ifstream m_stream;
  std::size_t m_headerBytes;
  bool m_bigEndian;
};

} // namespace

std::unique_ptr<SampleArray> openBinarySamples(const std::filesystem::path& path, SampleType type,
                                               SampleArray::Extents shape, bool firstIndexFastest,
                                               std::size_t headerBytes, bool bigEndian) {
  return std::make_unique<BinarySampleArray>(path, type, std::move(shape), firstIndexFastest, headerBytes, bigEndian);
}

std::unique_ptr<SampleArray> openRawSamples(const std::filesystem::path& path, SampleType type,
                                            SampleArray::Extents shape, bool firstIndexFastest,
                                            std::size_t headerBytes) {
  return openBinarySamples(path, type, std::move(shape), firstIndexFastest, headerBytes, false);
}

} // namespace Kelvaris
