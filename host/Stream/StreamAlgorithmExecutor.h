#pragma once

#include "Core/Parameter.h"
#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Stream/ImageStream.h"
#include "Stream/StreamAlgorithm.h"

#include <memory>
#include <mutex>
#include <string>

namespace Kelvaris {

/// Applies an algorithm that works image by image to the emissions of a stream, and emits the results on a stream of
/// its own. Works on the thread that emits. The algorithm is given, or created from the first emission by its name: the
/// first one of that display name or alias that works on these images. An image that fails, also by an exception, is
/// dropped with a logged error; so is an emission for which the creation ends with an exception.
///
/// Parameters: `autoStart` (bool, true): listen to the input from the first emission on, without compute();
/// `mode` (int, 0): FirstImage or EveryImage of an emission.
class StreamAlgorithmExecutor : public StreamAlgorithm {
public:
  enum Mode : int { FirstImage = 0, EveryImage = 1 };

  /// The input must outlive this object, and must not emit while this object or the output is deleted. The algorithm
  /// may be null; it must be a SequentialImageProcessor, or it is refused with a logged error.
  StreamAlgorithmExecutor(ImageStream& input, std::unique_ptr<Algorithm> algorithm);

  /// The display name of the algorithm to create (the last segment of its category), or an alias of it.
  void setStreamAlgorithmName(const std::string& name);
  std::string streamAlgorithmName() const;
  /// The algorithm that works on the stream; null until there is one.
  Algorithm* streamAlgorithm() const;

  /// Starts listening. Status IncompleteInput, with a logged error, if there is neither an algorithm nor a name.
  void compute() override;

  /// Parameters of the executor itself.
  Parameter<bool> autoStart{"autoStart", true};
  Parameter<int> mode{"mode", FirstImage};

private:
  void listen();
  void onData(const std::shared_ptr<const StreamData>& data);
  void setAlgorithm(std::unique_ptr<Algorithm> algorithm);
  void instantiateAlgorithm(const SharedImageSet& images);

  ImageStream& m_input;
  mutable std::mutex m_mutex; ///< name, algorithm and its input
  std::string m_name;
  std::unique_ptr<SharedImageSet> m_example; ///< the images that the algorithm was created for
  std::unique_ptr<Algorithm> m_algorithm;
  SequentialImageProcessor* m_processor = nullptr;
  boost::signals2::scoped_connection m_inputConnection; ///< these two last: they end first
  boost::signals2::scoped_connection m_autoStartConnection;
};

} // namespace Kelvaris
