#pragma once

#include "Core/Signal.h"
#include "Lib/AlgorithmFactory.h"

#include <QString>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace Kelvaris::Viewer {

class DataItem;

/// An algorithm applied to items of the data list, with what it made. The workspace makes steps and runs them. For the
/// main thread.
class Step {
public:
  enum class State {
    Idle,
    Waiting, ///< it will be run
    Running,
    Failed ///< error() says why
  };
  using Clock = std::chrono::steady_clock;

  /// `changed` is called, on whatever thread, after a parameter of the algorithm has changed.
  Step(int id, AlgorithmFactory::Descriptor descriptor, std::unique_ptr<Algorithm> algorithm,
       std::vector<DataItem*> inputs, std::function<void()> changed);
  Step(const Step&) = delete;
  Step& operator=(const Step&) = delete;

  int id() const { return m_id; }
  /// The last level of its menu path.
  QString name() const;
  Algorithm& algorithm() const { return *m_algorithm; }
  const AlgorithmFactory::Descriptor& descriptor() const { return m_descriptor; }
  const std::vector<DataItem*>& inputs() const { return m_inputs; }
  /// Null until there is one, and when it has been removed.
  DataItem* output() const { return m_output; }
  /// True if its algorithm is a StreamAlgorithm. It is never run: it works on every emission by itself.
  bool isStream() const { return m_isStream; }

  State state() const { return m_state; }
  /// Why the last run failed: the errors that were logged meanwhile, a line each, else its status. Empty unless Failed.
  const QString& error() const { return m_error; }
  /// True if the output was not made with the present parameters from the present input: the last run failed or was
  /// cancelled, or another one is due.
  bool isOutdated() const { return m_outdated; }

private:
  friend class Workspace;

  bool takes(const DataItem& item) const;

  int m_id;
  AlgorithmFactory::Descriptor m_descriptor;
  std::vector<DataItem*> m_inputs;
  DataItem* m_output = nullptr;
  int m_outputId = 0;   ///< that the output will get; 0: any
  QString m_outputName; ///< likewise; empty: the step's name
  bool m_isStream;
  State m_state = State::Idle;
  QString m_error;
  bool m_outdated = false;
  bool m_wanted = false; ///< has been asked to run: from then on it follows its parameters and inputs
  bool m_dirty = false;  ///< is to be run, at m_due or later
  Clock::time_point m_due{};

  std::unique_ptr<Algorithm> m_algorithm;
  std::atomic<bool> m_hasChanged = false;        ///< a parameter, since the workspace last asked
  std::vector<BlockingConnection> m_connections; ///< to the parameters
};

} // namespace Kelvaris::Viewer
