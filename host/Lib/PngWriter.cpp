#include "Lib/PngWriter.h"

#include "Lib/EightBitPicture.h"

#include <fmt/format.h>
#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

namespace Kelvaris::PngWriter {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

[[noreturn]] void onError(png_structp, png_const_charp message) {
  throw std::runtime_error(message);
}

/// libpng's structures, and the calls to it; errors are exceptions.
class Encoder {
public:
  explicit Encoder(std::FILE* file)
      : m_png(png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, nullptr)),
        m_info(m_png ? png_create_info_struct(m_png) : nullptr) {
    if (!m_info) throw std::bad_alloc();
    png_init_io(m_png, file);
  }
  ~Encoder() { png_destroy_write_struct(&m_png, &m_info); }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  void begin(int width, int height, int colorType, const Eigen::Vector2d& pixelSize) {
    png_set_IHDR(m_png, m_info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8, colorType,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (pixelSize.minCoeff() > 0.0) {
      const auto perMeter = [](double size) { return static_cast<png_uint_32>(std::lround(1000.0 / size)); };
      png_set_pHYs(m_png, m_info, perMeter(pixelSize.x()), perMeter(pixelSize.y()), PNG_RESOLUTION_METER);
    }
    png_write_info(m_png, m_info);
  }
  void row(const unsigned char* samples) { png_write_row(m_png, samples); }
  void end() { png_write_end(m_png, m_info); }

private:
  png_structp m_png;
  png_infop m_info;
};

/// The samples of the slice, and for an image with a mask which of its pixels are valid.
struct Samples {
  Samples(const SharedImage& image, int slice)
      : pixels(std::static_pointer_cast<TypedImage<unsigned char>>(image.mem())) {
    first = pixels->pointer() + pixels->index(0, 0, slice, 0);
    if (!image.mask()) return;
    const int width = pixels->width();
    valid.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(pixels->height()));
    for (int y = 0; y < pixels->height(); ++y)
      image.mask()->evaluate(*pixels, 0, y, slice, width, valid.data() + pixels->index(0, y, 0, 0) / channels());
  }
  std::size_t channels() const { return static_cast<std::size_t>(pixels->channels()); }
  EightBitPicture::Slice view() const {
    return {first, pixels->width(), pixels->height(), pixels->channels(), valid.empty() ? nullptr : valid.data()};
  }

  std::shared_ptr<const TypedImage<unsigned char>> pixels;
  const unsigned char* first = nullptr;
  std::vector<unsigned char> valid;
};

/// Rows of a picture with the colours of masked pixels, as the encoder takes them.
class Rows {
public:
  Rows(const EightBitPicture& picture, const std::optional<Color>& maskColor)
      : m_picture(picture),
        m_maskColor(maskColor),
        m_samples(static_cast<std::size_t>(picture.width()) * static_cast<std::size_t>(picture.channels())),
        m_valid(static_cast<std::size_t>(picture.width()), 1) {}

  int colorType() const {
    const int channels = m_picture.channels();
    if (channels == 4) return PNG_COLOR_TYPE_RGB_ALPHA;
    if (m_picture.hasMask() && m_maskColor) return PNG_COLOR_TYPE_RGB;
    if (m_picture.hasMask()) return channels == 3 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_GRAY_ALPHA;
    return channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY;
  }

  /// Valid until the next call.
  const std::vector<unsigned char>& row(int j) {
    m_picture.row(j, m_samples.data(), m_valid.data());
    if (!m_picture.hasMask()) return m_samples;
    m_row.clear();
    const auto channels = static_cast<std::size_t>(m_picture.channels());
    for (std::size_t i = 0; i < m_valid.size(); ++i)
      if (m_valid[i])
        appendValid(&m_samples[i * channels], channels);
      else
        appendMasked(&m_samples[i * channels], channels);
    return m_row;
  }

private:
  void appendValid(const unsigned char* samples, std::size_t channels) {
    m_row.insert(m_row.end(), samples, samples + channels);
    if (channels == 4) return;
    if (!m_maskColor)
      m_row.push_back(255);
    else if (channels == 1)
      m_row.insert(m_row.end(), 2, *samples);
  }

  void appendMasked(const unsigned char* samples, std::size_t channels) {
    if (m_maskColor) {
      m_row.insert(m_row.end(), m_maskColor->begin(), m_maskColor->end());
      if (channels == 4) m_row.push_back(255);
    } else {
      m_row.insert(m_row.end(), samples, samples + std::min<std::size_t>(channels, 3));
      m_row.push_back(0);
    }
  }

  const EightBitPicture& m_picture;
  std::optional<Color> m_maskColor;
  std::vector<unsigned char> m_samples, m_valid, m_row;
};

void encode(std::FILE* file, const EightBitPicture& picture, const Options& options) {
  Encoder encoder(file);
  Rows rows(picture, options.maskColor);
  encoder.begin(picture.width(), picture.height(), rows.colorType(), picture.pixelSize());
  for (int y = 0; y < picture.height(); ++y)
    encoder.row(rows.row(y).data());
  encoder.end();
}

} // namespace

void checkSupported(const ImageDescriptor& d) {
  if (d.pixelType() == PixelUInt8 && (d.channels() == 1 || d.channels() == 3 || d.channels() == 4)) return;
  throw std::invalid_argument(
      fmt::format("A PNG can't show an image of {}: bring it to 8-bit gray levels first, with LogCompression and "
                  "normalizeEnvelope=true",
                  d.toString()));
}

void write(const PendingFile& file, const SharedImage& image, int slice, const Options& options) {
  const ImageDescriptor& d = image.descriptor();
  checkSupported(d);
  if (slice < 0 || slice >= d.slices())
    throw std::out_of_range(fmt::format("There is no slice {} in an image of {}", slice, d.toString()));
  const Samples samples(image, slice);
  const EightBitPicture picture(samples.view(), EightBitPicture::pixelSize(d, options.pixelSize), options.squarePixels);
  try {
    std::unique_ptr<std::FILE, CloseFile> stream(std::fopen(file.path().c_str(), "wb"));
    if (!stream) throw std::runtime_error(std::strerror(errno));
    encode(stream.get(), picture, options);
    if (std::fclose(stream.release()) != 0) throw std::runtime_error(std::strerror(errno));
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(fmt::format("Can't write {}: {}", file.target().string(), error.what()));
  }
}

} // namespace Kelvaris::PngWriter
