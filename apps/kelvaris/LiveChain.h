#pragma once

#include "kelvaris/Step.h"
#include "kelvaris/StreamStatistics.h"

#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Stream/ImageStream.h"

#include <memory>
#include <string>
#include <vector>

namespace Kelvaris::CommandLine {

/// Steps on a live stream, each on a thread of its own that drops what it can't keep up with.
class LiveChain {
public:
  /// Listens to the source, which must outlive this object. `image`: the one of each emission that is processed. Throws
  /// std::invalid_argument for an unknown algorithm, and for parameters that it doesn't have as far as that shows
  /// without data.
  LiveChain(ImageStream& source, const std::vector<Step>& steps, int image);
  ~LiveChain();

  /// What leaves the last step; the source if there are no steps.
  ImageStream& output() { return *m_output; }
  /// To be called before the source emits, and when all who work on the output listen already: a frame has come out
  /// when they are done with it.
  void watchOutput();
  /// To be called when the source emits no more: waits until the last frame has come out, for a few seconds at most,
  /// since an algorithm may give no result.
  void waitUntilEmpty();
  /// A line a step, and one for all of them together. Empty without steps.
  std::string report() const;

private:
  struct Stage {
    std::string name;
    StageStatistics statistics;
    BlockingConnection entering; ///< before the executor, so that nothing leaves before it has entered
    std::unique_ptr<Algorithm> executor;
    BlockingConnection leaving;
  };

  ImageStream* m_output;
  Stage m_whole;
  std::vector<std::unique_ptr<Stage>> m_stages;
};

} // namespace Kelvaris::CommandLine
