#pragma once

#include "Lib/SharedImage.h"

#include <memory>
#include <string>
#include <thread>

namespace Kelvaris::US {

class FrameAcquisition;

/// Echoes by the SIMUS simulator of the host's Python interpreter. It needs an interpreter of the host; without one, as
/// here, it isn't available, and the stream goes on with simple echoes.
class SimusBridge {
public:
  /// Simulations are to be asked for on the thread that builds the bridge.
  SimusBridge() = default;

  /// The echoes of one frame; null if they can't be had, and the log says why: this isn't the thread that built the
  /// bridge, or SIMUS isn't available.
  std::unique_ptr<SharedImage> simulateFrame(const FrameAcquisition& frame) const;

private:
  std::thread::id m_mainThread = std::this_thread::get_id();
  std::string m_errorText = "Python Interpreter was not found. Please specify one in the Application Settings.";
};

} // namespace Kelvaris::US
