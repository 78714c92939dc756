#pragma once

#include "kelvaris/OutputFile.h"

#include "Core/Signal.h"
#include "Stream/ImageStream.h"

#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace Kelvaris::CommandLine {

/// Writes what a live stream emits, on the thread that emits.
class StreamRecorder {
public:
  struct Options {
    std::optional<std::filesystem::path> file; ///< .kvx, for every image
    std::optional<double> pictureInterval;     ///< s; at least so long between two pictures
    std::filesystem::path pictures;            ///< folder for frame_00000.png, ..., by the number of the emission
  };

  /// Makes file and folder. After an error nothing more is written, and `onError` called, on the thread that emits.
  /// Throws std::invalid_argument and std::runtime_error.
  StreamRecorder(ImageStream& stream, const Options& options, std::function<void()> onError);

  bool failed() const;
  /// Stops listening, and gives the file its name. Throws what went wrong while writing. Returns lines for the user.
  std::string finish();

private:
  void write(const ImageStreamData& emission);

  Options m_options;
  std::unique_ptr<OutputFile> m_file;
  std::chrono::steady_clock::time_point m_nextPicture{};
  int m_emissions = 0, m_pictures = 0;
  mutable std::mutex m_mutex;
  std::exception_ptr m_error; ///< guarded by the mutex
  BlockingConnection m_connection;
};

} // namespace Kelvaris::CommandLine
