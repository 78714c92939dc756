#include "Lib/PngWriter.h"

#include <fmt/format.h>
#include <png.h>

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

  void begin(const ImageDescriptor& d, int colorType) {
    png_set_IHDR(m_png, m_info, static_cast<png_uint_32>(d.width()), static_cast<png_uint_32>(d.height()), 8, colorType,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    const double perMeterX = 1000.0 / d.spacing().x(), perMeterY = 1000.0 / d.spacing().y();
    if (d.isMetric() && isDensity(perMeterX) && isDensity(perMeterY))
      png_set_pHYs(m_png, m_info, static_cast<png_uint_32>(std::lround(perMeterX)),
                   static_cast<png_uint_32>(std::lround(perMeterY)), PNG_RESOLUTION_METER);
    png_write_info(m_png, m_info);
  }
  void row(const unsigned char* samples) { png_write_row(m_png, samples); }
  void end() { png_write_end(m_png, m_info); }

private:
  /// pHYs holds whole pixels per metre in 31 bits.
  static bool isDensity(double perMeter) { return perMeter >= 0.5 && perMeter < 2147483647.0; }

  png_structp m_png;
  png_infop m_info;
};

int colorTypeOf(int channels, bool masked) {
  if (channels == 3) return PNG_COLOR_TYPE_RGB;
  if (channels == 4) return PNG_COLOR_TYPE_RGB_ALPHA;
  return masked ? PNG_COLOR_TYPE_GRAY_ALPHA : PNG_COLOR_TYPE_GRAY;
}

void encode(std::FILE* file, const TypedImage<unsigned char>& pixels, const ImageDescriptor& d, const Mask* mask,
            int slice) {
  const bool addAlpha = mask && d.channels() == 1;
  Encoder encoder(file);
  encoder.begin(d, colorTypeOf(d.channels(), addAlpha));
  const std::size_t width = addAlpha ? static_cast<std::size_t>(d.width()) : 0;
  std::vector<unsigned char> grayAlpha(width * 2), valid(width);
  for (int y = 0; y < d.height(); ++y) {
    const unsigned char* row = pixels.pointer() + pixels.index(0, y, slice, 0);
    if (addAlpha) {
      mask->evaluate(pixels, 0, y, slice, d.width(), valid.data());
      for (std::size_t x = 0; x < width; ++x) {
        grayAlpha[2 * x] = row[x];
        grayAlpha[2 * x + 1] = valid[x] ? 255 : 0;
      }
      row = grayAlpha.data();
    }
    encoder.row(row);
  }
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

void write(const PendingFile& file, const SharedImage& image, int slice,
           const std::optional<Eigen::Vector2d>& pixelSize) {
  ImageDescriptor d = image.descriptor();
  if (pixelSize) {
    d.setSpacing({pixelSize->x(), pixelSize->y(), 1.0});
    d.setMetric(true);
  }
  checkSupported(d);
  if (slice < 0 || slice >= d.slices())
    throw std::out_of_range(fmt::format("There is no slice {} in an image of {}", slice, d.toString()));
  const auto pixels = std::static_pointer_cast<TypedImage<unsigned char>>(image.mem());
  try {
    std::unique_ptr<std::FILE, CloseFile> stream(std::fopen(file.path().c_str(), "wb"));
    if (!stream) throw std::runtime_error(std::strerror(errno));
    encode(stream.get(), *pixels, d, image.mask().get(), slice);
    if (std::fclose(stream.release()) != 0) throw std::runtime_error(std::strerror(errno));
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(fmt::format("Can't write {}: {}", file.target().string(), error.what()));
  }
}

} // namespace Kelvaris::PngWriter
