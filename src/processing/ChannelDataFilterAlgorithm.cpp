#include "processing/ChannelDataFilterAlgorithm.h"

#include "CUDA/DeviceBufferPool.h"
#include "Core/Log.h"
#include "gpu/ConvolutionFilter1D.h"
#include "model/AlgorithmFrame.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"
#include "model/Utils.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris::US {
namespace {

constexpr AlgorithmFrame kFrame = {
    .className = "ChannelDataFilterAlgorithm",
    .displayName = "Filter Channel Data",
    .acceptsStream = &isVolumeStream,
    .acceptsImages = [](const SharedImageSet& images) { return holdsVolumes(images) && isChannelData(images); },
    .keepsSetState = true,
    .hasProgress = false,
    .errorText = "Error while filtering image ",
    .errorOf = " of ",
};

constexpr double kHertzPerMegahertz = 1e6;
constexpr double kLowerPerPulseFrequency = 0.25, kUpperPerPulseFrequency = 1.75;

const PulseEchoEvent& firstEvent(const FrameAcquisition* acquisition) {
  if (!acquisition) throw std::invalid_argument("There is no frame acquisition among the components");
  if (acquisition->events().empty()) throw std::out_of_range("The frame acquisition has no events");
  return acquisition->events().front();
}

} // namespace

struct ChannelDataFilterAlgorithm::Impl {
  CUDA::DeviceBufferPool::ActivationGuard activationGuard;
  std::mutex mutex;              ///< guards the parameters and what follows
  float samplingFrequency = 0.0; ///< Hz; 0 until there is a filter
  std::shared_ptr<const GPU::ConvolutionFilter1D> filter;
};

ChannelDataFilterAlgorithm::ChannelDataFilterAlgorithm(const SharedImageSet* input)
    : m_input(input), m_impl(std::make_unique<Impl>()) {
  if (!input || !isChannelData(*input)) throw std::invalid_argument("imageSet does not represent channel data");
  for (ParameterBase* parameter : std::initializer_list<ParameterBase*>{&m_filterType, &m_cutoffFrequencyLower,
                                                                        &m_cutoffFrequencyUpper, &m_filterLength})
    registerParameter(parameter, &m_impl->mutex);
  m_filterType.setAttribute("values", "Lowpass,Highpass,Bandpass");
  setFrequencyAttributes(m_cutoffFrequencyLower, "50");
  setFrequencyAttributes(m_cutoffFrequencyUpper, "50");
  const double pulseFrequency = getDataPulseFrequency(*input) / kHertzPerMegahertz;
  m_cutoffFrequencyLower = pulseFrequency * kLowerPerPulseFrequency;
  m_cutoffFrequencyUpper = pulseFrequency * kUpperPerPulseFrequency;
  for (ParameterBase* parameter : parameters())
    receive(parameter->changed, [this] { onParametersChanged(); });
}

ChannelDataFilterAlgorithm::~ChannelDataFilterAlgorithm() = default;

bool ChannelDataFilterAlgorithm::createCompatible(const DataList& data, Algorithm** algorithm) {
  return createCompatibleAlgorithm<ChannelDataFilterAlgorithm>(kFrame, data, algorithm);
}

float ChannelDataFilterAlgorithm::getDataSamplingFrequency(const DataComponentList& components) {
  return static_cast<float>(firstEvent(getFrameAcquisition(components)).receive.samplingFrequency);
}

float ChannelDataFilterAlgorithm::getDataPulseFrequency(const SharedImageSet& images) {
  return static_cast<float>(firstEvent(getFrameAcquisition(images)).transmit.pulseFrequency);
}

void ChannelDataFilterAlgorithm::compute() {
  computeImages(kFrame, *this, m_input, m_progress, m_status, m_output);
}

OwningDataList ChannelDataFilterAlgorithm::takeOutput() {
  return takeImages(m_output);
}

void ChannelDataFilterAlgorithm::updateFilter(float samplingFrequency, std::unique_lock<std::mutex>&) const {
  const auto hertz = [](double megahertz) { return static_cast<float>(kHertzPerMegahertz * megahertz); };
  const auto kernel = Signal::createFirFilter(m_filterType, samplingFrequency, hertz(m_cutoffFrequencyLower),
                                              hertz(m_cutoffFrequencyUpper), m_filterLength, 0);
  if (kernel.size() == 0)
    throw std::invalid_argument(fmt::format("A filter has a length of at least 1, not {}", m_filterLength.value()));
  m_impl->filter = std::make_shared<GPU::ConvolutionFilter1D>(kernel);
  m_impl->samplingFrequency = samplingFrequency;
}

void ChannelDataFilterAlgorithm::onParametersChanged() {
  std::unique_lock lock(m_impl->mutex);
  if (m_impl->samplingFrequency != 0.0f) updateFilter(m_impl->samplingFrequency, lock);
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList>
ChannelDataFilterAlgorithm::processImage(const SharedImage& image, const DataComponentList& components) const {
  const auto fail = [](const char* message) {
    Log::error(kFrame.className, "{}", message);
    return std::pair<std::shared_ptr<SharedImage>, DataComponentList>();
  };

  if (image.descriptor().shift() != 0.0 || image.descriptor().scale() != 1.0)
    return fail("Input image has shift or scale applied. This is not supported.");
  if (!isChannelData(components)) return fail("Input data is not channel data");

  std::shared_ptr<const GPU::ConvolutionFilter1D> filter;
  {
    std::unique_lock lock(m_impl->mutex);
    const float samplingFrequency = getDataSamplingFrequency(components);
    if (samplingFrequency != m_impl->samplingFrequency) updateFilter(samplingFrequency, lock);
    filter = m_impl->filter;
  }
  if (!filter) return fail("Filter not instantiated, cannot compute");

  DataComponentList updated = components;
  const int axis = updated.getOrCreate<ChannelDataLayout>().fastTimeAxisIndex();
  auto result = filter->apply(image, axis);
  if (!result) return fail("Filter did not produce an output");
  result->setModality(image.modality());
  return {std::move(result), std::move(updated)};
}

} // namespace Kelvaris::US
