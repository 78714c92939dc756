#include "processing/IqDemodulation.h"

#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "imagemath/ImageMath.h"
#include "processing/SignalProcessing.h"

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

namespace Kelvaris::US {
namespace {

constexpr int kFastTimeAxis = 1;
constexpr float kMixingAmplitude = 2.0f;

/// The two components of `image` times `signal`, in floats. Every column and slice meets sample y of the signal at its
/// row y.
std::unique_ptr<SharedImage> mixed(const SharedImage& image, const SharedImage& signal) {
  const auto samples = ImageMath::BroadcastChannels(ImageMath::Array<const SharedImage, float>(image), 2);
  if (image.descriptor().dimensions() == signal.descriptor().dimensions())
    return (samples * ImageMath::Array<const SharedImage, float>(signal)).evaluateIntoImage<float>(false);
  const auto product = samples * ImageMath::Array<const SharedImage, float, true>(signal);
  auto result = std::make_unique<SharedImage>(
      ImageMath::internal::combineImageDescriptors({samples.imgDesc(), signal.descriptor()}, false, PixelFloat));
  ImageMath::Array<SharedImage, float> target(*result);
  target = product;
  return result;
}

} // namespace

void IqDemodulation::updateCachedSignals(int height, double samplingFrequency, double demodulationFrequency,
                                         double cutoffRatio, int filterLength) const {
  const auto fs = static_cast<float>(samplingFrequency), fd = static_cast<float>(demodulationFrequency);
  CachedSignals signals;
  signals.filterLength = filterLength;
  signals.samplingFrequency = samplingFrequency;
  signals.demodulationFrequency = demodulationFrequency;
  signals.cutoffRatio = cutoffRatio;
  signals.filter = std::make_unique<GlConvolutionFilter>(nullptr, GlConvolutionFilter::ZeroBorder);
  signals.filter->setKernel(Signal::createFirFilter(Signal::FilterType::Lowpass, fs, 0.0f,
                                                    static_cast<float>(demodulationFrequency * cutoffRatio),
                                                    filterLength, kFastTimeAxis));
  signals.resampler = std::make_unique<ImageResamplingAlgorithm>(nullptr, nullptr);
  signals.resampler->setSequentialMode(true);
  signals.resampler->mode = ImageResamplingAlgorithm::Linear;
  signals.signal = std::make_unique<SharedImage>(std::make_shared<TypedImage<float>>(
      Signal::sinusoidComplex(fs, -fd, height, kMixingAmplitude, 0.0f, kFastTimeAxis)));
  m_signals = std::move(signals);
}

std::shared_ptr<SharedImage> IqDemodulation::demodulate(const SharedImage& image, double samplingFrequency,
                                                        double demodulationFrequency, int decimationFactor,
                                                        double cutoffRatio, int filterLength) const {
  if (image.descriptor().channels() != 1)
    throw std::invalid_argument(
        fmt::format("IQ demodulation takes images of 1 channel, not of {}", image.descriptor().channels()));
  const GL::ContextManager::ActivationGuard guard;
  const int height = image.descriptor().height();
  if (!m_signals || m_signals->samplingFrequency != samplingFrequency ||
      m_signals->demodulationFrequency != demodulationFrequency || m_signals->cutoffRatio != cutoffRatio ||
      m_signals->filterLength != filterLength || m_signals->signal->descriptor().height() != height)
    updateCachedSignals(height, samplingFrequency, demodulationFrequency, cutoffRatio, filterLength);

  ImageDescriptor descriptor = image.descriptor();
  descriptor.setChannels(2);
  SharedImage filtered(std::make_shared<GlImage>(descriptor));
  filtered.setMatrix(image.matrix());
  {
    const auto product = mixed(image, *m_signals->signal);
    m_signals->filter->apply(*product->sharedCustom<GlImage>(), *filtered.sharedCustom<GlImage>());
  }
  filtered.setDirtyGl();

  Eigen::Vector3d spacing = descriptor.spacing();
  spacing[kFastTimeAxis] *= decimationFactor;
  m_signals->resampler->setTargetSpacing(spacing);
  return m_signals->resampler->processImage(filtered, {}).first;
}

} // namespace Kelvaris::US
