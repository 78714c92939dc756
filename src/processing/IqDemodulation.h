#pragma once

#include "GL/GlConvolutionFilter.h"
#include "GL/ImageResamplingAlgorithm.h"
#include "Lib/SharedImage.h"

#include <memory>
#include <optional>

namespace Kelvaris::US {

/// Brings real samples to baseband by OpenGL: mixing with a complex sinusoid, low-pass filter, resampling to a lower
/// rate. The fast-time axis is the image's height. (GPU::IqDemodulation does the same for channel data, along any
/// axis.) Keeps filter, resampler and mixing signal between calls; one object serves one thread at a time.
class IqDemodulation {
public:
  /// The baseband signal of each column of `image` (one component, any pixel type), y being the row:
  ///
  ///     out(y) = sum_k h(k) m(y - k),   m(y) = v(y) 2 exp(-i 2 pi fd y / fs)
  ///
  /// with the low-pass filter h of `filterLength` taps and cut-off fd `cutoffRatio` (Signal::createFirFilter), centred
  /// on k = 0 and cut at the ends of the column. Then `decimationFactor` is what the row spacing grows by: the rows are
  /// resampled (ImageResamplingAlgorithm, linear) over the same extent, also for a factor of 1. A tone
  /// a cos(2 pi fd y / fs + phi) becomes a exp(i phi), up to the filter's gain. The phase starts with 0 at row 0 of
  /// every image.
  ///
  /// The result has two components, in-phase and quadrature, and the pixel type and matrix of `image`: an image of
  /// integers gives integers, so a 16-bit one should use its range, and of an unsigned one half of each sinusoid is
  /// lost. The frequencies share one unit, for example MHz; fd = 0 has the cut-off 0, whose filter gives 0.
  ///
  /// A context is made current unless the caller holds one, which is better: with one, the mixing happens by OpenGL on
  /// every machine. Null, with an error logged by the resampler, for a factor below 1 and for a row spacing that isn't
  /// positive. Throws std::invalid_argument for an even `filterLength` and for other than one component,
  /// std::runtime_error if `image` has no pixels, GL::Error if OpenGL isn't available, if the image exceeds its limits
  /// or if it fails.
  std::shared_ptr<SharedImage> demodulate(const SharedImage& image, double samplingFrequency,
                                          double demodulationFrequency, int decimationFactor, double cutoffRatio,
                                          int filterLength) const;

  /// What stays, with the parameters that it was made for.
  struct CachedSignals {
    std::unique_ptr<GlConvolutionFilter> filter;
    std::unique_ptr<ImageResamplingAlgorithm> resampler;
    std::unique_ptr<SharedImage> signal; ///< 1 x height, two floats
    int filterLength = 0;
    double samplingFrequency = 0.0;
    double demodulationFrequency = 0.0;
    double cutoffRatio = 0.0;
  };
  /// Null before the first call. Any change of a parameter or of the height replaces the record as a whole.
  const CachedSignals* cachedSignals() const { return m_signals ? &*m_signals : nullptr; }

  /// Designs filter and mixing signal for columns of `height` samples and replaces those in the cache. Called by
  /// demodulate().
  void updateCachedSignals(int height, double samplingFrequency, double demodulationFrequency, double cutoffRatio,
                           int filterLength) const;

private:
  mutable std::optional<CachedSignals> m_signals;
};

} // namespace Kelvaris::US
