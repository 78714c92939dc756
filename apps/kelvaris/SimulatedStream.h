#pragma once

#include "kelvaris/SequenceSummary.h"

#include "Core/Properties.h"
#include "Stream/ImageStream.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

namespace CLI {
class App;
}

namespace Kelvaris::CommandLine {

/// What a simulation takes from the command line, not yet checked.
struct SimulationOptions {
  std::string sequence;
  std::string phantom = "point", origin = "0,10,0";
  double echo = 10.0, transmit = 50.0, noise = 0.5; ///< amplitudes
  std::string pixel = "short";
  std::string rate = "30Hz";
  bool simus = false;

  void addTo(CLI::App& command);
};

/// The checked settings of a simulated stream.
struct SimulationSettings {
  Properties properties; ///< as the stream reads them
  SequenceSummary sequence;
  double rate; ///< emissions per second

  /// Reads the sequence. Throws std::runtime_error or std::invalid_argument that names the value and what would be
  /// right.
  static SimulationSettings of(const SimulationOptions& options);
};

/// A stream of simulated channel data, and the thread that waits for it. Errors that are logged anywhere while it lives
/// end the waiting: a stream whose sequence is too large, for example, goes on without ever emitting.
class SimulatedStream {
public:
  /// Makes the stream, closed. Throws std::runtime_error if no plugin provides one or it refuses the settings.
  explicit SimulatedStream(const Properties& settings);
  ~SimulatedStream();
  SimulatedStream(const SimulatedStream&) = delete;
  SimulatedStream& operator=(const SimulatedStream&) = delete;

  ImageStream& stream() { return *m_stream; }
  /// Opens and starts. Throws std::runtime_error with the reason.
  void start();
  /// To be called by slots when there is something that waitFor() may wait for.
  void notify();
  /// Waits until `done()`, which is asked again after notify() and every 20 ms, and must not log. Throws
  /// std::runtime_error with the first error that was logged, and if the stream stops before all is done.
  template <typename Done> void waitFor(Done done) {
    for (std::unique_lock lock(m_mutex);; m_changed.wait_for(lock, kPatience)) {
      const Stream::State state = m_stream->state(); // first, since what is done may have stopped it
      if (done()) return;
      check(state);
    }
  }

private:
  static constexpr std::chrono::milliseconds kPatience{20};
  void check(Stream::State state) const;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::string m_error; ///< guarded by the mutex
  int m_sink;
  std::unique_ptr<ImageStream> m_stream;
};

} // namespace Kelvaris::CommandLine
