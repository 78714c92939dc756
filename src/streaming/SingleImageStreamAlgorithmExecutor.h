#pragma once

#include "Core/Parameter.h"
#include "Core/Properties.h"
#include "Core/Signal.h"
#include "GL/SyncObject.h"
#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"
#include "Stream/StreamAlgorithm.h"
#include "streaming/BackgroundThreadQueue.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace Kelvaris::US {

class SingleImageAlgorithmExecutorStream;

/// An emission on its way through the queue.
struct SingleImageStreamAlgorithmExecutorPayload {
  std::shared_ptr<const SharedImageSet> images;
  std::optional<GL::SyncObject> sync; ///< behind the emitter's work on the images, where that may still be going on
};

/// Applies an algorithm to one image of every emission of a stream, and emits the results on a stream of its own, with
/// the timestamps of the input. It works on a thread of its own, with an OpenGL context of its own where there is
/// OpenGL, so that the emitting thread is never held up: what the algorithm can't keep up with is dropped
/// (BackgroundThreadQueue). See docs/streams.md.
///
/// The algorithm, a SequentialImageProcessor, is given, or created by its id or display name from the first emission.
/// If that fails, it is logged once, the name is cleared, and the input is no longer listened to until
/// setStreamAlgorithmName() is called. Once there is an algorithm it stays; another name then waits for nothing.
///
/// Parameters:
///
/// | forceBlocking | bool, false | process on the emitting thread, which waits, and drop nothing                   |
/// | processOnGpu  | bool, false | have the images brought to the GPU first (SharedImageSet::prepareForGpu)         |
/// | queueSize     | int, 5      | emissions that wait at most; at least 1                                         |
/// | imageIndex    | int, 0      | the image of the emission to process                                            |
///
/// A frame for which something goes wrong is lost, with a logged error; nothing is thrown to the emitting stream. That
/// holds for exceptions of the algorithm and of those who listen to the output, too: they cost one frame and not the
/// thread. A null image of the algorithm is no error: nothing is emitted.
///
/// Settings of the algorithm can change while it runs: configure() waits for the image in progress, and no image sees
/// a part of the new settings. All functions may be called while the streams emit, by one thread at a time. The
/// destructor, and the end of the output stream, let the image in progress finish and drop what waits; neither may
/// happen in a slot of the input or the output.
class SingleImageStreamAlgorithmExecutor : public StreamAlgorithm,
                                           public BackgroundThreadConsumer<SingleImageStreamAlgorithmExecutorPayload> {
public:
  using Payload = SingleImageStreamAlgorithmExecutorPayload;

  /// Listens and works from now on. The algorithm may be null. When the input goes away, the executor stays without
  /// work.
  SingleImageStreamAlgorithmExecutor(ImageStream& input, std::unique_ptr<Algorithm> algorithm);
  ~SingleImageStreamAlgorithmExecutor() override;

  /// For one image stream of known kind (not OtherStreamKind). With `algorithm` not null, the caller gets a new
  /// executor without an algorithm; false leaves it alone.
  static bool createCompatible(const DataList& data, Algorithm** algorithm);

  /// Nothing to do: the work begins with the first emission. Status IncompleteInput, with a logged error, if there is
  /// neither an algorithm nor the name of one.
  void compute() override;
  /// IncompleteInput, too, when the algorithm couldn't be created.
  int status() const override { return m_currentStatus; }

  /// Null when it has gone.
  ImageStream* inputStream() const { return m_input; }
  /// The algorithm that works on the stream; null until there is one.
  Algorithm* streamAlgorithm() const;
  std::string streamAlgorithmName() const;
  /// The id, or the display name, of the algorithm to create. Drops the settings that wait for it.
  void setStreamAlgorithmName(const std::string& name);

  /// Returns when nothing waits in the queue or is in progress at its front, or nothing will be processed any more
  /// because the output has gone.
  void waitUntilCompleted();

  /// The parameters, `algorithmName`, and the algorithm's own settings as sub-properties `algorithmConfig`. Settings
  /// for the algorithm at work reach it at once; for another name, both are kept for the algorithm to be created, and
  /// those that still wait are among what configuration() writes.
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;

  /// Called by the queue, or by the emitting thread.
  void process(TimestampedPayload<Payload> item) override;

  /// Emitted when the algorithm has been created, on the thread that processes.
  SignalImpl<> outputChanged;
  /// Emitted when the executor goes away, while its algorithm is still there.
  SignalImpl<> goneSignal;

  Parameter<bool> forceBlocking{"forceBlocking", false};
  Parameter<bool> processOnGpu{"processOnGpu", false};
  Parameter<int> queueSize{"queueSize", 5};
  Parameter<int> imageIndex{"imageIndex", 0};

private:
  void onStreamData(const std::shared_ptr<const StreamData>& data);
  void processOrThrow(const TimestampedPayload<Payload>& item);
  std::shared_ptr<SharedImageSet> processedImages(const SharedImageSet& images);
  bool instantiateAlgorithm(const SharedImageSet& images);
  std::unique_ptr<Algorithm> createAlgorithm(const SharedImageSet& images, int index);
  /// Locks m_mutex, first come first served: with one image after the other in progress, whoever else wants the mutex
  /// would be overtaken again and again.
  std::unique_lock<std::mutex> lockInTurn() const {
    const std::scoped_lock turn(m_turn);
    return std::unique_lock(m_mutex);
  }

  /// Guards the algorithm, its input, its name, the settings that wait, and processImage(). Never held while a
  /// connection or the queue ends: both wait for process().
  mutable std::mutex m_mutex;
  mutable std::mutex m_turn;           ///< of those who wait for m_mutex
  mutable std::mutex m_parameterMutex; ///< guards the parameters, for moments only; taken after the other
  std::atomic<int> m_currentStatus = Success;
  std::atomic<bool> m_listening = true;
  std::atomic<ImageStream*> m_input;
  SingleImageAlgorithmExecutorStream* m_output; ///< null when it has gone
  std::unique_ptr<SharedImageSet> m_example;    ///< the image that the algorithm was created for
  std::unique_ptr<Algorithm> m_algorithm;
  SequentialImageProcessor* m_processor = nullptr;
  std::string m_name;
  std::optional<Properties> m_pendingConfiguration;
  std::unique_ptr<BackgroundThreadQueue<Payload>> m_queue;
  boost::signals2::scoped_connection m_queueSizeConnection;
  BlockingConnection m_inputGoneConnection;
  BlockingConnection m_inputConnection;
  BlockingConnection m_outputGoneConnection;
};

} // namespace Kelvaris::US
