#pragma once

#include "CUDA/DeviceBufferImage.h"
#include "Lib/SharedImage.h"

#include <memory>

namespace Kelvaris::US::GPU {

/// Brings real samples to baseband: mixing with a complex sinusoid, low-pass filter and decimation in one kernel, which
/// computes the samples that are kept and no others. Keeps filter and mixing signal on the device between calls.
/// One object serves one thread at a time.
class IqDemodulation {
public:
  IqDemodulation();
  ~IqDemodulation();
  IqDemodulation(IqDemodulation&&) noexcept;
  IqDemodulation& operator=(IqDemodulation&&) noexcept;

  /// The baseband signal of `image` (one component; int16, float or half float) along `axis`:
  ///
  ///     out(c) = sum_k h(k) v(c D + k) 2 exp(-i 2 pi fd (c D + k) / fs)
  ///
  /// with the low-pass filter h of `filterLength` taps and cut-off fd `cutoffRatio` (Signal::createFirFilter), centred
  /// on k = 0, and D the decimation factor. A tone a cos(2 pi fd t + phi), t = 0 at the first sample, becomes a exp(i
  /// phi). Sums are cut at the ends of a line; the first outputs take no more than c samples before their own.
  ///
  /// The result has two components, in-phase and quadrature, the pixel type and matrix of `image`, ceil(n / D) samples
  /// for its n on `axis`, and D times its spacing there. int16 results are rounded half away from zero and saturate. An
  /// image of any other type gives a result whose pixels are undefined. The frequencies share one unit, for example Hz.
  ///
  /// Throws std::invalid_argument for an axis other than 0, 1, 2, a factor below 1 (in this order) and an even
  /// `filterLength`, std::runtime_error if `image` has no pixels, CUDA::Error or std::bad_alloc if device memory is
  /// short. Errors of the launch go to the log.
  std::shared_ptr<SharedImage> demodulate(const SharedImage& image, double samplingFrequency,
                                          double demodulationFrequency, int decimationFactor, int axis,
                                          double cutoffRatio, int filterLength) const;

  /// What stays on the device, with the parameters that it was made for.
  struct CachedSignals {
    std::unique_ptr<CUDA::DeviceBufferImage> filter; ///< filterLength x 1 x 1, float
    std::unique_ptr<CUDA::DeviceBufferImage> signal; ///< samples of a line x 1 x 1, two floats
    int filterLength = 0;
    int decimationFactor = 0;
    double samplingFrequency = 0.0;
    double demodulationFrequency = 0.0;
    double cutoffRatio = 0.0;
  };
  /// Null before the first call. Any change of a parameter or of the line's length replaces the record as a whole.
  const CachedSignals* cachedSignals() const { return m_signals.get(); }

  /// Designs filter and mixing signal for lines of `length` samples and replaces those in the cache. Called by
  /// demodulate().
  void updateCachedSignals(int length, int decimationFactor, double samplingFrequency, double demodulationFrequency,
                           double cutoffRatio, int filterLength) const;

private:
  mutable std::unique_ptr<CachedSignals> m_signals;
};

} // namespace Kelvaris::US::GPU
