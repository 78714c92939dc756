#pragma once

#include "CUDA/VectorTypes.h"
#include "gpu/BeamformerType.h"
#include "gpu/EventInfo.h"
#include "gpu/Workmode.h"

#include <array>
#include <complex>
#include <vector>

namespace Kelvaris::Tests {

/// Everything that delay-and-sum beamforming needs, in plain main memory.
struct BeamformingScene {
  std::vector<CUDA::float3> elements;
  float pitch = 0.3f;
  std::vector<US::GPU::EventInfo> events;
  std::vector<int> elementToChannel; ///< elements x events
  int numChannels = 0;
  int numSamples = 0;
  bool isComplex = false;
  std::vector<std::complex<float>>
      samples;                      ///< channels x samples x events, channels fastest; real data have imaginary part 0
  std::array<int, 3> axes{0, 1, 2}; ///< image axis of channels, fast time, slow time in the kernel's input
  int width = 0, height = 0, slices = 1; ///< of the output
  std::vector<CUDA::float2> positions;   ///< width x height x positionSlices
  int positionSlices = 1;
  float fNumber = 1;
  float scaling = 1;
  US::GPU::BeamformerType type = US::GPU::BeamformerType::UnweightedDas;
  US::GPU::Workmode workmode = US::GPU::Workmode::CoherentCompound;

  std::complex<float>& sample(int channel, int sample, int event) {
    return samples[static_cast<std::size_t>((event * numSamples + sample) * numChannels + channel)];
  }
  const std::complex<float>& sample(int channel, int sample, int event) const {
    return const_cast<BeamformingScene*>(this)->sample(channel, sample, event);
  }
};

struct BeamformedPixel {
  std::complex<double> value; ///< scaled; NaN where there is no data
  bool isValid = false;
  bool isWritten = false; ///< false for columns and slices without an event
  /// A decision (nearest element, width of the aperture, sample in the recording) lies within the rounding of single
  /// precision of falling the other way.
  bool isDoubtful = false;
};

/// Delay and sum by the plain formula, pixel by pixel, in the precision Real and in the stated order of operations. In
/// double it is the reference for accuracy, in float for the bits of the apertures.
template <typename Real> std::vector<BeamformedPixel> delayAndSum(const BeamformingScene& scene);

} // namespace Kelvaris::Tests
