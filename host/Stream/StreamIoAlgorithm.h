#pragma once

#include "Core/Properties.h"
#include "Stream/StreamAlgorithm.h"

#include <memory>
#include <optional>

namespace Kelvaris {

/// An algorithm without input: compute() makes a new stream, gives it the stored settings, and opens and starts it if
/// asked to.
class StreamIoAlgorithm : public StreamAlgorithm {
public:
  /// Makes a new stream for setStream().
  void compute() override;

  /// Replaces the stream, configures it with the stored settings, and opens and starts it as the flags say, waiting for
  /// each. Status Success if all that was asked for was done, else Failure. What is thrown is logged as an error and
  /// the stream given up; so it is for null, without a log entry.
  void setStream(std::unique_ptr<Stream> stream);
  /// Deletes the stream, unless it has been taken, and forgets it.
  void resetStream() override { replaceStream(nullptr); }

  /// Keeps the settings for streams to come, and passes them on to the present one. Two flags among them are the
  /// algorithm's own: whether to open a new stream (the first key present of "open", "autoOpen", "connect"), and
  /// whether to start it then ("start", "autoStart").
  void configure(const Properties* properties) override;
  /// Settings of the present stream; without one, those stored last. The flags are not among what a stream writes.
  void configuration(Properties* properties) const override;

  bool autoOpen() const { return m_autoOpen; }
  bool autoStart() const { return m_autoStart; }

protected:
  StreamIoAlgorithm(bool autoOpen, bool autoStart) : m_autoOpen(autoOpen), m_autoStart(autoStart) {}
  virtual std::unique_ptr<Stream> makeStream() const = 0;

private:
  void giveUp(const char* reason);

  std::optional<Properties> m_settings;
  bool m_autoOpen;
  bool m_autoStart;
};

} // namespace Kelvaris
