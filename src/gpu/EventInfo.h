#pragma once

#include "CUDA/VectorTypes.h"

namespace Kelvaris::US::GPU {

/// What the beamforming kernel needs of one pulse-echo event, in single precision: positions in mm in the frame of the
/// array, speed of sound in mm/s, frequencies in Hz, times in s.
struct EventInfo {
  float speedOfSound;
  float pulseFrequency;       ///< carrier that complex data are rotated back to
  int eventType;              ///< 0 focused, 1 plane wave, 2 diverging wave
  CUDA::float3 timeZeroPoint; ///< where the transmitted wave is at time 0
  CUDA::float3 waveFiducial;  ///< focus (type 0), unit direction of propagation (type 1), virtual source (type 2)
  CUDA::float3 waveStart;     ///< start of the wave, for type 0
  int apertureFirst;          ///< first receiving element
  int apertureLast;           ///< last receiving element, inclusive
  float samplingFrequency;
  float startTime; ///< time of the first sample
};

} // namespace Kelvaris::US::GPU
