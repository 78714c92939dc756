#include "kelvaris/StreamRecorder.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris::CommandLine {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

StreamRecorder::StreamRecorder(ImageStream& stream, const Options& options, std::function<void()> onError)
    : m_options(options) {
  if (m_options.file) {
    if (m_options.file->extension() != ".kvx")
      throw std::invalid_argument(fmt::format("The recording {} doesn't end in .kvx", m_options.file->string()));
    m_file = OutputFile::create(*m_options.file, true);
  }
  if (m_options.pictureInterval) {
    if (!(*m_options.pictureInterval > 0.0))
      throw std::invalid_argument("The time between two pictures must be above 0");
    std::error_code error;
    fs::create_directory(m_options.pictures, error);
    if (!fs::is_directory(m_options.pictures, error))
      throw std::runtime_error(fmt::format("{} can't be made a folder for pictures", m_options.pictures.string()));
  }
  if (!m_file && !m_options.pictureInterval) return;
  m_connection = stream.dataSignal.connectBlocking(
      [this, onError = std::move(onError)](const std::shared_ptr<const StreamData>& data) {
        const auto* emission = dynamic_cast<const ImageStreamData*>(data.get());
        if (!emission || failed()) return;
        try {
          write(*emission);
        } catch (...) {
          {
            const std::scoped_lock lock(m_mutex);
            m_error = std::current_exception();
          }
          onError();
        }
      });
}

void StreamRecorder::write(const ImageStreamData& emission) {
  const auto images = emission.images()->clone(4);
  for (int i = 0; i < images->size(); ++i)
    images->setTimestamp(static_cast<double>(emission.timestampDevice()), i);
  if (m_file) m_file->append(*images);
  if (m_options.pictureInterval && Clock::now() >= m_nextPicture) {
    m_nextPicture = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                       std::chrono::duration<double>(*m_options.pictureInterval));
    const auto picture = OutputFile::create(m_options.pictures / fmt::format("frame_{:05}.png", m_emissions), false);
    picture->append(*images);
    picture->close();
    picture->finish();
    ++m_pictures;
  }
  ++m_emissions;
}

bool StreamRecorder::failed() const {
  const std::scoped_lock lock(m_mutex);
  return m_error != nullptr;
}

std::string StreamRecorder::finish() {
  m_connection.disconnect();
  if (m_error) std::rethrow_exception(m_error);
  std::string text;
  if (m_file) {
    m_file->close();
    m_file->finish();
    text += fmt::format("Wrote {}\n", m_file->summary());
  }
  if (m_options.pictureInterval)
    text +=
        fmt::format("Wrote {} ({} picture{})\n", m_options.pictures.string(), m_pictures, m_pictures == 1 ? "" : "s");
  return text;
}

} // namespace Kelvaris::CommandLine
