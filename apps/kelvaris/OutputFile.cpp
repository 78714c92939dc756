#include "kelvaris/OutputFile.h"

#include "Lib/KelvarisFile.h"
#include "Lib/PngWriter.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"

#include <fmt/format.h>

#include <optional>
#include <stdexcept>
#include <vector>

namespace Kelvaris::CommandLine {
namespace {

class KvxOutput : public OutputFile {
public:
  explicit KvxOutput(std::filesystem::path path) : m_path(std::move(path)), m_writer(m_path) {}

  void append(const SharedImageSet& images) override {
    if (!m_state) m_state = images.clone(3);
    for (int i = 0; i < images.size(); ++i)
      m_writer.append(images.get(i), images.elementwiseComponents().components(i), images.timestamp(i));
    m_count += images.size();
  }
  void close() override { m_writer.close(m_state ? *m_state : SharedImageSet()); }
  void finish() override { m_writer.finish(); }
  std::string summary() const override {
    return fmt::format("{} ({} image{})", m_path.string(), m_count, m_count == 1 ? "" : "s");
  }

private:
  std::filesystem::path m_path;
  KelvarisFile::Writer m_writer;
  std::unique_ptr<SharedImageSet> m_state; ///< of the first images
  int m_count = 0;
};

/// The component of the image, else that of the whole set.
template <typename T> const T* componentOf(const SharedImageSet& images, int index) {
  if (const T* own = images.elementwiseComponents().components(index).get<T>()) return own;
  return images.components().get<T>();
}

/// Size of the pixels (mm) of a picture of lines and depths, whose spacing counts lines across. Lines that aren't
/// parallel and upright have no pixels of one size: zeros. Nothing for a picture that has been scan-converted, or of
/// anything else.
std::optional<Eigen::Vector2d> prescanPixelSize(const SharedImageSet& images, int index) {
  const auto* metadata = componentOf<US::FrameGeometryMetadata>(images, index);
  const US::FrameGeometry* geometry = metadata ? metadata->frameGeometry() : nullptr;
  const auto* settings = componentOf<US::UltrasoundMetadata>(images, index);
  if (!geometry || (settings && settings->scanConverted)) return std::nullopt;
  const auto* linear = dynamic_cast<const US::FrameGeometryLinear*>(geometry);
  if (!linear || linear->steeringAngle() != 0.0) return Eigen::Vector2d::Zero();
  const ImageDescriptor& d = images.get(index).descriptor();
  return Eigen::Vector2d(linear->width() / d.width(), linear->depth() / d.height());
}

class PngOutput : public OutputFile {
public:
  PngOutput(std::filesystem::path path, bool several, const PictureStyle& style)
      : m_path(std::move(path)), m_several(several), m_style(style) {
    const PendingFile probe(m_path); // an unwritable place shows before the work, not behind it
  }

  void append(const SharedImageSet& images) override {
    for (int i = 0; i < images.size(); ++i, ++m_count) {
      const SharedImage& image = images.get(i);
      PngWriter::checkSupported(image.descriptor());
      const int slices = image.descriptor().slices();
      const PngWriter::Options options{.pixelSize = prescanPixelSize(images, i),
                                       .squarePixels = m_style.squarePixels,
                                       .maskColor = m_style.maskColor};
      for (int slice = 0; slice < slices; ++slice) {
        std::string name = m_path.stem().string();
        if (m_several || images.size() > 1) name += fmt::format("_{:04}", m_count);
        if (slices > 1) name += fmt::format("_{:03}", slice);
        m_files.emplace_back(m_path.parent_path() / (name + m_path.extension().string()));
        PngWriter::write(m_files.back(), image, slice, options);
      }
    }
  }
  void close() override {}
  void finish() override {
    for (PendingFile& file : m_files)
      file.commit();
  }
  std::string summary() const override {
    if (m_files.empty()) return fmt::format("{} (no image)", m_path.string());
    std::string first = m_files.front().target().string();
    if (m_files.size() == 1) return first;
    return fmt::format("{} to {} ({} pictures)", first, m_files.back().target().filename().string(), m_files.size());
  }

private:
  std::filesystem::path m_path;
  bool m_several;
  PictureStyle m_style;
  std::vector<PendingFile> m_files;
  int m_count = 0;
};

} // namespace

std::unique_ptr<OutputFile> OutputFile::create(const std::filesystem::path& path, bool several,
                                               const PictureStyle& style) {
  if (path.extension() == ".kvx") return std::make_unique<KvxOutput>(path);
  if (path.extension() == ".png") return std::make_unique<PngOutput>(path, several, style);
  throw std::invalid_argument(fmt::format("The output {} ends neither in .kvx nor in .png", path.string()));
}

} // namespace Kelvaris::CommandLine
