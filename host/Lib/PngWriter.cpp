#include "Lib/PngWriter.h"

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

/// Longest side that square pixels may make of a picture.
constexpr double kLongestSide = 32768.0;

/// pHYs holds whole pixels per metre in 31 bits.
constexpr double kShortestPixel = 1000.0 / 2147483647.0, kLongestPixel = 2000.0; // mm

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

/// Where the pixels of a picture lie along one axis of an image: between pixel `first` and the one behind it,
/// `fraction` of the way, from 0 to below 1.
struct Position {
  int first;
  double fraction;
};

/// `size` places `step` pixels of the image apart, around its centre. What lies beyond the outermost pixel centres is
/// moved onto them.
std::vector<Position> positions(int size, int imageSize, double step) {
  std::vector<Position> all;
  for (int i = 0; i < size; ++i) {
    const double place = std::clamp(0.5 * imageSize + (i + 0.5 - 0.5 * size) * step - 0.5, 0.0, imageSize - 1.0);
    const int first = static_cast<int>(place);
    all.push_back({first, place - first});
  }
  return all;
}

/// A slice of an image as the picture shows it: all that lies between the samples and the encoder.
class Picture {
public:
  Picture(const SharedImage& image, int slice, const Options& options)
      : m_pixels(std::static_pointer_cast<TypedImage<unsigned char>>(image.mem())),
        m_mask(image.mask()),
        m_maskColor(options.maskColor),
        m_slice(slice),
        m_channels(m_pixels->channels()),
        m_pixelSize(pixelSizeOf(image.descriptor(), options)) {
    Eigen::Vector2i size(m_pixels->width(), m_pixels->height());
    Eigen::Vector2d step = Eigen::Vector2d::Ones();
    if (options.squarePixels && m_pixelSize.minCoeff() > 0.0) {
      const Eigen::Vector2i squares = sizeInSquares(size);
      if (squares != size) {
        step = m_pixelSize.cwiseInverse() * m_pixelSize.minCoeff();
        m_pixelSize.setConstant(m_pixelSize.minCoeff());
        size = squares;
      }
    }
    m_x = positions(size.x(), m_pixels->width(), step.x());
    m_y = positions(size.y(), m_pixels->height(), step.y());
    m_valid.assign(2 * static_cast<std::size_t>(m_pixels->width()), 1);
  }

  int width() const { return static_cast<int>(m_x.size()); }
  int height() const { return static_cast<int>(m_y.size()); }
  const Eigen::Vector2d& pixelSize() const { return m_pixelSize; }

  int colorType() const {
    if (m_channels == 4) return PNG_COLOR_TYPE_RGB_ALPHA;
    if (m_mask && m_maskColor) return PNG_COLOR_TYPE_RGB;
    if (m_mask) return m_channels == 3 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_GRAY_ALPHA;
    return m_channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY;
  }

  /// The samples of row `j`, valid until the next call.
  const std::vector<unsigned char>& row(int j) {
    const Position& y = m_y[static_cast<std::size_t>(j)];
    loadValidity(y);
    m_row.clear();
    for (const Position& x : m_x)
      appendPixel(x, y);
    return m_row;
  }

private:
  /// Zeros where the size is not known.
  static Eigen::Vector2d pixelSizeOf(const ImageDescriptor& d, const Options& options) {
    Eigen::Vector2d size = Eigen::Vector2d::Zero();
    if (options.pixelSize)
      size = *options.pixelSize;
    else if (d.isMetric())
      size = d.spacing().head<2>();
    const bool known = size.allFinite() && size.minCoeff() > kShortestPixel && size.maxCoeff() <= kLongestPixel;
    return known ? size : Eigen::Vector2d::Zero();
  }

  Eigen::Vector2i sizeInSquares(const Eigen::Vector2i& size) const {
    const double side = m_pixelSize.minCoeff();
    const Eigen::Vector2d squares = (size.cast<double>().cwiseProduct(m_pixelSize) / side).array().round();
    if (squares.maxCoeff() > std::max<double>(kLongestSide, size.maxCoeff()))
      throw std::invalid_argument(
          fmt::format("Pixels of {:.6g} x {:.6g} mm would make {:.0f} x {:.0f} square ones, a side may have {:.0f}: "
                      "write them as they are",
                      m_pixelSize.x(), m_pixelSize.y(), squares.x(), squares.y(), kLongestSide));
    return squares.cast<int>();
  }

  int second(const Position& y) const { return std::min(y.first + 1, m_pixels->height() - 1); }

  /// The validity of the rows that `y` lies between, one behind the other.
  void loadValidity(const Position& y) {
    if (!m_mask) return;
    const int width = m_pixels->width();
    m_mask->evaluate(*m_pixels, 0, y.first, m_slice, width, m_valid.data());
    if (y.fraction > 0.0) m_mask->evaluate(*m_pixels, 0, second(y), m_slice, width, m_valid.data() + width);
  }

  void appendPixel(const Position& x, const Position& y) {
    struct Neighbour {
      const unsigned char* samples;
      double weight;
      bool valid;
    };
    std::array<Neighbour, 4> neighbours{};
    const Neighbour* nearest = nullptr;
    double sum = 0.0;
    for (int i = 0; i < 4; ++i) {
      const int right = i & 1, below = i >> 1;
      const int column = std::min(x.first + right, m_pixels->width() - 1);
      const double weight = (right ? x.fraction : 1.0 - x.fraction) * (below ? y.fraction : 1.0 - y.fraction);
      Neighbour& neighbour = neighbours[static_cast<std::size_t>(i)];
      neighbour = {m_pixels->pointer() + m_pixels->index(column, below ? second(y) : y.first, m_slice, 0), weight,
                   m_valid[static_cast<std::size_t>(below * m_pixels->width() + column)] != 0};
      if (!nearest || weight > nearest->weight) nearest = &neighbour;
      if (neighbour.valid) sum += weight;
    }
    if (!nearest->valid) {
      appendMasked(nearest->samples);
      return;
    }
    for (int channel = 0; channel < m_channels; ++channel) {
      double value = 0.0;
      for (const Neighbour& neighbour : neighbours)
        if (neighbour.valid) value += neighbour.weight * neighbour.samples[channel];
      m_row.push_back(static_cast<unsigned char>(std::lround(value / sum)));
    }
    if (!m_mask || m_channels == 4) return;
    if (!m_maskColor)
      m_row.push_back(255);
    else if (m_channels == 1)
      m_row.insert(m_row.end(), 2, m_row.back());
  }

  void appendMasked(const unsigned char* samples) {
    if (m_maskColor) {
      m_row.insert(m_row.end(), m_maskColor->begin(), m_maskColor->end());
      if (m_channels == 4) m_row.push_back(255);
    } else {
      m_row.insert(m_row.end(), samples, samples + std::min(m_channels, 3));
      m_row.push_back(0);
    }
  }

  std::shared_ptr<const TypedImage<unsigned char>> m_pixels;
  std::shared_ptr<const Mask> m_mask;
  std::optional<Color> m_maskColor;
  int m_slice, m_channels;
  Eigen::Vector2d m_pixelSize; ///< mm; zeros if not known
  std::vector<Position> m_x, m_y;
  std::vector<unsigned char> m_valid, m_row;
};

void encode(std::FILE* file, Picture& picture) {
  Encoder encoder(file);
  encoder.begin(picture.width(), picture.height(), picture.colorType(), picture.pixelSize());
  for (int y = 0; y < picture.height(); ++y)
    encoder.row(picture.row(y).data());
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
  Picture picture(image, slice, options);
  try {
    std::unique_ptr<std::FILE, CloseFile> stream(std::fopen(file.path().c_str(), "wb"));
    if (!stream) throw std::runtime_error(std::strerror(errno));
    encode(stream.get(), picture);
    if (std::fclose(stream.release()) != 0) throw std::runtime_error(std::strerror(errno));
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(fmt::format("Can't write {}: {}", file.target().string(), error.what()));
  }
}

} // namespace Kelvaris::PngWriter
