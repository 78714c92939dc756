#pragma once

#include "Core/Parameter.h"
#include "Core/Properties.h"
#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Stream/ImageStream.h"
#include "Stream/StreamAlgorithm.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace Kelvaris {

/// Applies an algorithm that works image by image to the emissions of a stream, and emits the results on a stream of
/// its own. Works on the thread that emits. The algorithm is given, or created by its name from the first emission that
/// it works on: the first one of that display name or alias. Emissions before that are dropped, with one logged error
/// for all. An image that fails, also by an exception, is dropped with a logged error. The output is of its
/// input's kind until there are results, then of theirs.
///
/// Settings: those of the algorithm are the sub-properties `algorithmConfig`; they wait for an algorithm that isn't
/// there yet. Parameters: `autoStart` (bool, true): listen to the input from the first emission on, without compute();
/// setting it to false ends the listening; `mode` (int, 0): FirstImage or EveryImage of an emission.
///
/// The input may emit on another thread all the while. The executor's own functions are for one thread at a time; its
/// end, that of its output and that of listening wait for an emission that is being worked on.
class StreamAlgorithmExecutor : public StreamAlgorithm {
public:
  enum Mode : int { FirstImage = 0, EveryImage = 1 };

  /// When the input goes away, the executor stays without work. The algorithm may be null; it must be a
  /// SequentialImageProcessor, or it is refused with a logged error.
  StreamAlgorithmExecutor(ImageStream& input, std::unique_ptr<Algorithm> algorithm);

  /// The display name of the algorithm to create (the last segment of its category), or an alias of it. Drops the
  /// settings that wait for it.
  void setStreamAlgorithmName(const std::string& name);
  std::string streamAlgorithmName() const;
  /// The algorithm that works on the stream; null until there is one.
  Algorithm* streamAlgorithm() const;

  /// Starts listening. Status IncompleteInput, with a logged error, if there is neither an algorithm nor the name of
  /// one, or the input has gone.
  void compute() override;

  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;

  /// Emitted when the algorithm has been created, on the thread that emits the input.
  SignalImpl<> outputChanged;

  /// Parameters of the executor itself.
  Parameter<bool> autoStart{"autoStart", true};
  Parameter<int> mode{"mode", FirstImage};

private:
  void listen();
  void onData(const std::shared_ptr<const StreamData>& data);
  void setAlgorithm(std::unique_ptr<Algorithm> algorithm);
  void instantiateAlgorithm(const SharedImageSet& images);

  ImageStream* m_input;
  std::string m_inputName;
  mutable std::mutex m_mutex; ///< guards all down to the processor, and the parameter `mode`; not held while it works
  std::string m_name;
  bool m_hasComplained = false; ///< that there is no algorithm of that name for the stream
  std::optional<Properties> m_pendingConfiguration;
  std::unique_ptr<SharedImageSet> m_example; ///< the images that the algorithm was created for
  std::unique_ptr<Algorithm> m_algorithm;
  SequentialImageProcessor* m_processor = nullptr; ///< stays once it is there
  boost::signals2::scoped_connection m_inputClosedConnection;
  boost::signals2::scoped_connection m_outputClosedConnection;
  BlockingConnection m_inputConnection; ///< these two last: they end first
  boost::signals2::scoped_connection m_autoStartConnection;
};

} // namespace Kelvaris
