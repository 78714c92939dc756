#include "gpu/IqDemodulation.h"

#include "CUDA/Utils.h"
#include "gpu/IqDemodulationLaunch.h"
#include "processing/SignalProcessing.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Kelvaris::US::GPU {
namespace {

template <typename T> void launch(const IqDemodulationArguments& arguments, int axis) {
#if KELVARIS_HAVE_CUDA
  if (CUDA::Device::isCuda()) {
    const CUDA::KernelBuffer& o = arguments.output;
    const auto shape = CUDA::Utils::blockSizeForImage(CUDA::Dim3{o.width, o.height, o.slices});
    CUDA::Utils::printError(demodulateOnCuda<T>(shape, arguments, axis));
    return;
  }
#endif
  demodulateOnCpu<T>(arguments, axis);
}

} // namespace

IqDemodulation::IqDemodulation() = default;
IqDemodulation::~IqDemodulation() = default;
IqDemodulation::IqDemodulation(IqDemodulation&&) noexcept = default;
IqDemodulation& IqDemodulation::operator=(IqDemodulation&&) noexcept = default;

void IqDemodulation::updateCachedSignals(int length, int decimationFactor, double samplingFrequency,
                                         double demodulationFrequency, double cutoffRatio, int filterLength) const {
  const auto fs = static_cast<float>(samplingFrequency), fd = static_cast<float>(demodulationFrequency);
  const auto cutoff = static_cast<float>(demodulationFrequency * cutoffRatio);
  const auto filter = Signal::createFirFilter(Signal::FilterType::Lowpass, fs, 0.0f, cutoff, filterLength, 0);
  const auto signal = Signal::sinusoidComplex(fs, -fd, length, 2.0f, 0.0f, 0);
  auto signals = std::make_unique<CachedSignals>();
  signals->filter = std::make_unique<CUDA::DeviceBufferImage>(filter);
  signals->signal = std::make_unique<CUDA::DeviceBufferImage>(signal);
  signals->filterLength = filterLength;
  signals->decimationFactor = decimationFactor;
  signals->samplingFrequency = samplingFrequency;
  signals->demodulationFrequency = demodulationFrequency;
  signals->cutoffRatio = cutoffRatio;
  m_signals = std::move(signals);
}

std::shared_ptr<SharedImage> IqDemodulation::demodulate(const SharedImage& image, double samplingFrequency,
                                                        double demodulationFrequency, int decimationFactor, int axis,
                                                        double cutoffRatio, int filterLength) const {
  if (axis < 0 || axis > 2) throw std::invalid_argument("Invalid axis");
  if (decimationFactor <= 0) throw std::invalid_argument("Decimation factor must be positive");
  CUDA::Utils::PrimaryContext::ensureCurrent();

  const int length = image.descriptor().dimensions()[axis];
  if (!m_signals || m_signals->samplingFrequency != samplingFrequency ||
      m_signals->demodulationFrequency != demodulationFrequency || m_signals->cutoffRatio != cutoffRatio ||
      m_signals->filterLength != filterLength || m_signals->decimationFactor != decimationFactor ||
      m_signals->signal->descriptor().width() != length)
    updateCachedSignals(length, decimationFactor, samplingFrequency, demodulationFrequency, cutoffRatio, filterLength);

  const auto input = image.sharedCustom<CUDA::DeviceBufferImage>();
  ImageDescriptor descriptor = image.descriptor();
  Eigen::Vector3d spacing = descriptor.spacing();
  spacing[axis] *= decimationFactor;
  Eigen::Vector3i dimensions = descriptor.dimensions();
  dimensions[axis] = (length - 1) / decimationFactor + 1;
  descriptor.setChannels(2);
  descriptor.setSpacing(spacing);
  descriptor.setDimensions(dimensions, 0);
  const auto output = std::make_shared<CUDA::DeviceBufferImage>(descriptor);

  // From the line's length on the factor makes no difference, but it could overflow.
  const IqDemodulationArguments arguments{input->kernelBuffer(), output->kernelBuffer(),
                                          m_signals->signal->kernelBuffer(), m_signals->filter->kernelBuffer(),
                                          std::min(decimationFactor, length)};
  if (descriptor.pixelType() == PixelInt16)
    launch<short>(arguments, axis);
  else if (descriptor.pixelType() == PixelFloat || descriptor.pixelType() == PixelHalf)
    launch<float>(arguments, axis);

  std::shared_ptr<SharedImage> result = image.clone(4);
  result->assign(output);
  return result;
}

} // namespace Kelvaris::US::GPU
