#include "processing/IqDemodulationAlgorithm.h"

#include "CUDA/DeviceBufferPool.h"
#include "Core/Log.h"
#include "gpu/IqDemodulation.h"
#include "model/AlgorithmFrame.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"
#include "model/Utils.h"

#include <cmath>
#include <mutex>
#include <utility>

namespace Kelvaris::US {
namespace {

constexpr AlgorithmFrame kFrame = {
    .className = "IqDemodulationAlgorithm",
    .displayName = "IQ Demodulation",
    .acceptsStream = &isVolumeStream,
    .acceptsImages = [](const SharedImageSet& images) { return holdsImages(images) && channelsOfFirst(images) == 1; },
    .keepsSetState = true,
    .hasProgress = true,
    .errorText = "Error while filtering image ",
    .errorOf = "of",
};

constexpr double kCutoffRatio = 1.0;
constexpr int kFilterLength = 101;
constexpr int kDefaultFastTimeAxis = 1;

/// Beyond all that is recorded; a frequency in MHz beside one in Hz is.
bool isUnlikely(double ratio) {
  return ratio != 0.0 && (std::abs(ratio) < 1e-4 || std::abs(ratio) > 1e2);
}

} // namespace

struct IqDemodulationAlgorithm::Impl {
  CUDA::DeviceBufferPool::ActivationGuard activationGuard;
  GPU::IqDemodulation demodulator;
  std::mutex mutex; ///< guards the parameters and what follows
  std::optional<FrameAcquisition> inputAcquisition;
  std::optional<FrameAcquisition> outputAcquisition; ///< made from inputAcquisition when first needed
  bool hasWarned = false;
};

IqDemodulationAlgorithm::IqDemodulationAlgorithm(const SharedImageSet* input)
    : m_input(input), m_impl(std::make_unique<Impl>()) {
  registerParameter(&m_samplingFrequency, &m_impl->mutex);
  registerParameter(&m_demodulationFrequency, &m_impl->mutex);
  registerParameter(&m_decimationFactor, &m_impl->mutex);
  setFrequencyAttributes(m_samplingFrequency, "200");
  setFrequencyAttributes(m_demodulationFrequency, "50");
  m_decimationFactor.setAttribute("min", "1");
  m_decimationFactor.setAttribute("max", "20");
}

IqDemodulationAlgorithm::~IqDemodulationAlgorithm() = default;

bool IqDemodulationAlgorithm::createCompatible(const DataList& data, Algorithm** algorithm) {
  return createCompatibleAlgorithm<IqDemodulationAlgorithm>(kFrame, data, algorithm);
}

void IqDemodulationAlgorithm::compute() {
  computeImages(kFrame, *this, m_input, m_progress, m_status, m_output);
}

OwningDataList IqDemodulationAlgorithm::takeOutput() {
  return takeImages(m_output);
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList>
IqDemodulationAlgorithm::processImage(const SharedImage& image, const DataComponentList& components) const {
  if (image.descriptor().shift() != 0.0 || image.descriptor().scale() != 1.0) {
    Log::error(kFrame.className, "Input image has shift or scale applied. This is not supported.");
    return {};
  }

  const FrameAcquisition* const acquisition = getFrameAcquisition(components);
  std::optional<double> samplingFrequency, demodulationFrequency;
  int decimationFactor = 1;
  {
    const std::scoped_lock lock(m_impl->mutex);
    samplingFrequency = m_samplingFrequency.value();
    demodulationFrequency = m_demodulationFrequency.value();
    decimationFactor = m_decimationFactor;
    if (acquisition && (!m_impl->inputAcquisition || *m_impl->inputAcquisition != *acquisition)) {
      m_impl->inputAcquisition = *acquisition;
      m_impl->outputAcquisition.reset();
    }
  }
  const bool isSetAlone = samplingFrequency.has_value() != demodulationFrequency.has_value();
  if (acquisition && !acquisition->events().empty()) {
    const PulseEchoEvent& first = acquisition->events().front();
    samplingFrequency = samplingFrequency.value_or(first.receive.samplingFrequency);
    demodulationFrequency = demodulationFrequency.value_or(first.transmit.pulseFrequency);
  }
  if (!samplingFrequency || !demodulationFrequency) {
    Log::error(kFrame.className, "{}",
               acquisition
                   ? "The frame acquisition has no events; sampling frequency and demodulation frequency must be set"
                   : "Sampling frequency and demodulation frequency must be set for non-channel data");
    return {};
  }
  if (!std::isfinite(*samplingFrequency) || *samplingFrequency <= 0.0 || !std::isfinite(*demodulationFrequency)) {
    Log::error(kFrame.className,
               "Expected a positive sampling frequency and a finite demodulation frequency, got {} and {}",
               *samplingFrequency, *demodulationFrequency);
    return {};
  }

  if (acquisition && isSetAlone && isUnlikely(*demodulationFrequency / *samplingFrequency)) {
    const std::scoped_lock lock(m_impl->mutex);
    if (!std::exchange(m_impl->hasWarned, true))
      Log::warning(
          kFrame.className,
          "Sampling and demodulation frequency are {:g} and {:g}: one of them was set, and is taken in Hz, the "
          "unit of the acquisition (5 MHz are 5e6)",
          *samplingFrequency, *demodulationFrequency);
  }

  const auto* const layout = components.get<ChannelDataLayout>();
  const int axis = layout ? layout->fastTimeAxisIndex() : kDefaultFastTimeAxis;
  auto result = m_impl->demodulator.demodulate(image, *samplingFrequency, *demodulationFrequency, decimationFactor,
                                               axis, kCutoffRatio, kFilterLength);
  if (!result) {
    Log::error(kFrame.className, "Filter did not produce an output");
    return {};
  }
  result->setModality(image.modality());

  DataComponentList updated = components;
  if (decimationFactor != 1 && acquisition) {
    const std::scoped_lock lock(m_impl->mutex);
    if (!m_impl->outputAcquisition) {
      m_impl->outputAcquisition = *acquisition;
      for (PulseEchoEvent& event : m_impl->outputAcquisition->events())
        event.receive.samplingFrequency /= static_cast<double>(decimationFactor);
    }
    updated.add<FrameAcquisition>(*m_impl->outputAcquisition);
  }
  return {std::move(result), std::move(updated)};
}

} // namespace Kelvaris::US
