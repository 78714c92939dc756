#pragma once

#include "Core/Signal.h"
#include "Stream/ImageStream.h"

#include <future>
#include <mutex>

namespace Kelvaris::US {

/// The output of a SingleImageStreamAlgorithmExecutor: whoever holds the results emits them on its dataSignal. It has
/// no data of its own and passes commands on to the stream that feeds it, so that starting, pausing and stopping it
/// moves that one; opening and closing concern it alone. A command is done when the input has done it, and fails as the
/// input does; commands must therefore not be waited for, nor the stream deleted, on the input's worker thread.
///
/// | command | without input, also when it has gone |
/// | start   | true                                 |
/// | stop    | true                                 |
/// | pause   | false                                |
/// | resume  | false                                |
class SingleImageAlgorithmExecutorStream : public ImageStream {
public:
  /// The input may be null, and may go away before this stream.
  SingleImageAlgorithmExecutorStream(bool topDown, Kind kind, ImageStream* input);
  /// Closes, which stops the input if this stream has been started (that it can't is a logged error); then emits
  /// goneSignal. Closing alone, by closeAsync(), ends nothing.
  ~SingleImageAlgorithmExecutorStream() override;

  bool supportsPausing() const override; ///< as the input; false without
  bool workerThreadRequiresOpenGl() const override { return false; }
  bool topDown() const override { return m_topDown; }
  int size() const override { return 1; }

  /// Emitted when the stream goes away, while data may still be emitted on it: who does that, stops in the slot.
  SignalImpl<> goneSignal;

protected:
  bool openImpl() override { return true; }
  bool closeImpl() override { return true; }
  bool startImpl() override { return forward(&Stream::startAsync, true); }
  bool stopImpl() override { return forward(&Stream::stopAsync, true); }
  bool pauseImpl() override { return forward(&Stream::pauseAsync, false); }
  bool resumeImpl() override { return forward(&Stream::resumeAsync, false); }
  Continuation doWork() override { return Continuation::never(); }

private:
  bool forward(std::shared_future<bool> (Stream::*command)(), bool withoutInput);

  bool m_topDown;
  mutable std::mutex m_mutex; ///< guards the input
  ImageStream* m_input;
  BlockingConnection m_inputGone;
};

} // namespace Kelvaris::US
