#pragma once

#include "Core/Parameter.h"
#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"

#include <memory>
#include <optional>
#include <utility>

namespace Kelvaris::US {

/// Turns channel data, or any other real image, into baseband data (IQ): mixing, low-pass filter at the demodulation
/// frequency with 101 taps, decimation.
///
/// Input: one channel, int16, float or half float, neither shifted nor scaled. Of channel data the fast-time axis comes
/// from the ChannelDataLayout (else it is the height) and the frequencies from the first event of the FrameAcquisition.
/// Output: two channels (in-phase, quadrature) of the input's pixel type with 1 / decimationFactor of its samples,
/// rounded up; the sampling frequencies of the FrameAcquisition are divided alike. All other components stay. The
/// divided acquisition is made once for an input acquisition: a factor that changes while it is in use divides the
/// samples at once, but the rates only with the next acquisition.
///
/// Parameters: `samplingFrequency` and `demodulationFrequency` (optional doubles, empty) replace what the acquisition
/// says for the computation, but not in the output's acquisition; they are taken as they stand, so for channel data in
/// Hz (once, a warning tells of one that is set and can't be). Other images need both, in one unit. `decimationFactor`
/// (int, 1). Takes device memory for the output, two signals and, during processImage(), the input.
class IqDemodulationAlgorithm : public Algorithm, public SequentialImageProcessor, public SignalReceiver {
public:
  /// The input must outlive the algorithm; it may be null where only processImage() is called.
  explicit IqDemodulationAlgorithm(const SharedImageSet* input);
  ~IqDemodulationAlgorithm() override;

  static bool createCompatible(const DataList& data, Algorithm** algorithm);

  /// Throws like processImage().
  void compute() override;
  OwningDataList takeOutput() override;

  /// For one image at a time; parameters may change meanwhile. Besides what is reported by a null image, it throws
  /// std::invalid_argument for a decimation factor below 1 and for a layout without fast time, and what the device
  /// throws (GPU::IqDemodulation).
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override;

private:
  struct Impl;

  Parameter<std::optional<double>> m_samplingFrequency{"samplingFrequency", std::nullopt};
  Parameter<std::optional<double>> m_demodulationFrequency{"demodulationFrequency", std::nullopt};
  Parameter<int> m_decimationFactor{"decimationFactor", 1};
  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  std::unique_ptr<Impl> m_impl;
};

} // namespace Kelvaris::US
