#pragma once

#include "Core/Parameter.h"
#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"

#include <memory>
#include <mutex>
#include <utility>

namespace Kelvaris::US {

class IqDemodulation;

/// Makes a B-mode image from a beamformed image in one step: brings real samples to baseband along the image's height
/// (IqDemodulation, cut-off at the demodulation frequency, 101 taps) and compresses the magnitude logarithmically
/// (LogCompressionAlgorithm). IQ images, which have two channels, skip the first step and are always compressed.
///
/// The frequencies are those of the pixel grid, not of the recording. Rows that lie dz apart are 2 dz / c of echo time
/// apart, so with c = 1.54 mm/us and dz in mm
///
///     samplingFrequency = c / (2 dz), in MHz        e.g. 30.8 for rows of 0.025 mm
///     demodulationFrequency = centre frequency of the echoes, in MHz, mostly that of the pulse
///
/// and the rows must lie closer than a quarter of the wavelength c / demodulationFrequency, or the samples don't hold
/// the signal. Any other unit will do for both: only their ratio counts. (Demodulated channel data that was beamformed
/// with its phase kept is IQ and needs none of this.)
///
/// Input: one channel of any pixel type, without a shift, or two channels. Output: as from
/// LogCompressionAlgorithm; with `logCompression` off, the IQ image itself, in the input's pixel type and with the
/// components of the input. The spacing along the height grows by `decimationFactor`; frame geometries among the
/// components keep their size. Of real samples, invalid pixels count as 0, and the result has no mask; of IQ, it has
/// the mask that LogCompressionAlgorithm gives it.
///
/// Parameters: `samplingFrequency` (double, 100 MHz), `demodulationFrequency` (double, 3.5 MHz), `decimationFactor`
/// (int, 1), `logCompression` (bool, true; without effect on IQ input), `dynamicRange` (double, 50 dB),
/// `referenceAmplitude` (double, 1), `normalizeEnvelope` (bool, true). Real samples need OpenGL, and memory for six
/// floats a pixel.
class EnvelopeDetectionAlgorithm : public Algorithm, public SequentialImageProcessor, public SignalReceiver {
public:
  /// The input must outlive the algorithm; it may be null where only processImage() is called.
  explicit EnvelopeDetectionAlgorithm(const SharedImageSet* input);
  ~EnvelopeDetectionAlgorithm() override;

  static bool createCompatible(const DataList& data, Algorithm** algorithm);

  void compute() override;
  OwningDataList takeOutput() override;

  /// For one image at a time; parameters may change meanwhile. A null image and an empty list, with the reason in the
  /// log, for frequencies that make no filter, a factor below 1, other channel counts, an image without pixels or with
  /// a row spacing that isn't positive, and if OpenGL isn't available or fails. Exceptions for want of memory or of
  /// another OpenGL context pass.
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override;

private:
  Parameter<double> m_samplingFrequency{"samplingFrequency", 100.0};
  Parameter<double> m_demodulationFrequency{"demodulationFrequency", 3.5};
  Parameter<int> m_decimationFactor{"decimationFactor", 1};
  Parameter<bool> m_logCompression{"logCompression", true};
  Parameter<double> m_dynamicRange{"dynamicRange", 50.0};
  Parameter<double> m_referenceAmplitude{"referenceAmplitude", 1.0};
  Parameter<bool> m_normalizeEnvelope{"normalizeEnvelope", true};
  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  mutable std::mutex m_mutex;
  std::shared_ptr<IqDemodulation> m_demodulator;
};

} // namespace Kelvaris::US
