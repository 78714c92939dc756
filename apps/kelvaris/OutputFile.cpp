#include "kelvaris/OutputFile.h"

#include "Lib/KelvarisFile.h"
#include "Lib/PngWriter.h"
#include "US/PixelSize.h"

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
      const PngWriter::Options options{.pixelSize = US::prescanPixelSize(images, i),
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
