#pragma once

#include "Core/Parameter.h"
#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"

#include <memory>
#include <mutex>
#include <utility>

namespace Kelvaris::US {

/// Turns a beamformed or envelope image into decibels below a reference, the last step of B-mode formation.
///
/// Input: any pixel type; one channel (the amplitude is |x|) or two (IQ, the amplitude is sqrt(I^2 + Q^2)).
/// Output: one channel of the same extent, either display levels of 8 bits (0 to 255 over the dynamic range; with a
/// mask of any kind on the input 1 to 255, and 0 where the input is invalid) or decibels in [-dynamicRange, 0] as float
/// (NaN where the input is invalid). An output of a masked input has a mask of its own. A NaN sample gives 0 or NaN.
///
/// Parameters: `dynamicRange` (double, 50 dB), `referenceAmplitude` (double, 1: the amplitude of 0 dB),
/// `normalizeEnvelope` (bool, true: display levels). One pass, in main memory or by a shader as ImageMath::Array tells;
/// needs no memory beyond the output and, for a shader, the input's texture.
class LogCompressionAlgorithm : public Algorithm, public SequentialImageProcessor, public SignalReceiver {
public:
  struct Parameters {
    double dynamicRange = 50.0; ///< dB; not checked
    double referenceAmplitude = 1.0;
    bool normalizeEnvelope = true;
  };

  /// The input must outlive the algorithm; it may be null where only processImage() is called.
  explicit LogCompressionAlgorithm(const SharedImageSet* input);

  static bool createCompatible(const DataList& data, Algorithm** out);

  /// Null, with a logged error, for another number of channels. Holds no state: may run on several images at once.
  static std::shared_ptr<SharedImage> logCompression(const SharedImage& image, const Parameters& parameters);

  void compute() override;
  OwningDataList takeOutput() override;
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override;

private:
  Parameter<double> m_dynamicRange{"dynamicRange", Parameters().dynamicRange};
  Parameter<double> m_referenceAmplitude{"referenceAmplitude", Parameters().referenceAmplitude};
  Parameter<bool> m_normalizeEnvelope{"normalizeEnvelope", Parameters().normalizeEnvelope};
  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  mutable std::mutex m_mutex;
};

} // namespace Kelvaris::US
