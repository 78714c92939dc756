#pragma once

#include "GL/Program.h"
#include "Lib/SharedImage.h"

#include <Eigen/Core>

#include <memory>

namespace Kelvaris::GL {
class ShaderStorageBuffer;
}

namespace Kelvaris::US {

/// The compute program that adds a pulse at many places of a block of channel data. Everything needs a current OpenGL
/// context and throws GL::Error without one. One thread at a time.
class PulseOverlay {
public:
  /// Throws GL::Error if the program can't be made; the log says why.
  PulseOverlay();

  /// Adds the line `pulse` (float) to the columns of `layer`, a float image of (channels, samples, events), from the
  /// samples on that stand in `locations`: `numPulses` entries for each column, from entry (event x numChannels +
  /// channel) x numPulses on. A negative entry is no pulse; what falls beyond the last sample is dropped.
  void overlayPulses(SharedImage& layer, const GlImage& pulse, const GL::ShaderStorageBuffer& locations, int numPulses,
                     int numChannels, int numEvents);

private:
  std::unique_ptr<GL::Program> m_program;
};

} // namespace Kelvaris::US
