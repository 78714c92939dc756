#pragma once

#include "Lib/SharedImage.h"
#include "Lib/SharedImageSet.h"

#include <Eigen/Core>

#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Kelvaris {
class PythonInterpreter;
}

namespace Kelvaris::US {

class ChannelDataLayout;
class FrameAcquisition;

/// Echoes by the SIMUS simulator of the Python toolbox pymust, which a script of this library calls in the host's
/// interpreter. One simulation takes far longer than a frame of a live stream.
class SimusBridge {
public:
  /// Finds the interpreter, checks that it has what the script needs, and executes the script. Without SIMUS, whatever
  /// the reason, the bridge is there all the same. Simulations are to be asked for on the thread that builds it. Takes
  /// seconds the first time: where that thread has a window, it stays alive (LongWork).
  SimusBridge();

  /// Radio-frequency data of one frame (channels, samples, events) with the first event's speed of sound, sampling
  /// frequency and pulse; an element's channel is its number modulo the number of channels. `scatterers` and, one for
  /// each event, `offsets`, by which they are displaced, in mm. With `cache` a kept result of the same parameters is
  /// taken, and a new one is kept; without, all that is kept is deleted. The script reports how far it is within the
  /// caller's LongWork. Null if they can't be had or the work is given up, and the log says why.
  std::unique_ptr<SharedImage> simulateFrame(const FrameAcquisition& frame, const ChannelDataLayout& layout,
                                             const std::vector<Eigen::Vector3d>& scatterers,
                                             const std::vector<Eigen::Vector3d>& offsets, bool cache) const;

private:
  void prepareSimus();
  bool importAhead(const char* module);
  std::unique_ptr<SharedImageSet> simulate(const FrameAcquisition& frame,
                                           const std::vector<Eigen::Vector3d>& scatterers,
                                           const std::vector<Eigen::Vector3d>& offsets) const;

  bool m_simusAvailable = false;
  std::string m_errorText;
  std::thread::id m_mainThread = std::this_thread::get_id();
  PythonInterpreter* m_interpreter = nullptr; ///< the host's
  std::future<void> m_import;                 ///< waits, at its end, for an import that was given up
};

/// simulateFrame() for a stream: an element's samples lie in the channel that the event gives it, and elements without
/// one are left out. Null, and the log says why, also if the simulation has not the frame's channels and events.
std::unique_ptr<SharedImage> simulateByChannel(const SimusBridge& simus, const FrameAcquisition& frame,
                                               const ChannelDataLayout& layout,
                                               const std::vector<Eigen::Vector3d>& scatterers,
                                               const std::vector<Eigen::Vector3d>& offsets, bool cache);

/// An image of doubles, (elements, events): the transmit delay of each element in s, -1 where it doesn't transmit. Null
/// for a frame without events. Throws what PulseEchoEvent::Transmit::calculateDelays throws.
std::unique_ptr<SharedImageSet> createDelaysImage(const FrameAcquisition& frame);
/// An image of ints, (2, events): first and last element of each event's receive aperture. Null for a frame without
/// events.
std::unique_ptr<SharedImageSet> createReceiveApertureIndexImage(const FrameAcquisition& frame);

} // namespace Kelvaris::US
