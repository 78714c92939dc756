#include "processing/ChannelDataRemappingAlgorithm.h"

#include "CUDA/DeviceBufferPool.h"
#include "Core/Log.h"
#include "gpu/MapChannelsAndTranspose.h"
#include "model/AlgorithmFrame.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"
#include "model/Utils.h"

#include <fmt/format.h>

#include <optional>
#include <stdexcept>

namespace Kelvaris::US {
namespace {

constexpr AlgorithmFrame kFrame = {
    .className = "ChannelDataRemappingAlgorithm",
    .displayName = "Remap Channel Data",
    .acceptsStream = &isVolumeStream,
    .acceptsImages = [](const SharedImageSet& images) { return holdsVolumes(images) && isChannelData(images); },
    .keepsSetState = false,
    .hasProgress = false,
    .errorText = "Error while filtering image ",
    .errorOf = " of ",
    .carriesTimestamps = false,
};

} // namespace

struct ChannelDataRemappingAlgorithm::Impl {
  CUDA::DeviceBufferPool::ActivationGuard poolGuard;
  std::mutex mutex; ///< guards what follows
  std::shared_ptr<const GPU::MapChannelsAndTranspose> remapper;
  std::optional<FrameAcquisition> inputAcquisition; ///< the one that a remapper was last built for, or failed to be
  DataComponentList resultComponents;
};

ChannelDataRemappingAlgorithm::ChannelDataRemappingAlgorithm(const SharedImageSet* input)
    : m_input(input), m_impl(std::make_unique<Impl>()) {
  if (!input || !isChannelData(*input)) throw std::invalid_argument("imageSet does not represent channel data");
}

ChannelDataRemappingAlgorithm::~ChannelDataRemappingAlgorithm() = default;

bool ChannelDataRemappingAlgorithm::createCompatible(const DataList& data, Algorithm** algorithm) {
  return createCompatibleAlgorithm<ChannelDataRemappingAlgorithm>(kFrame, data, algorithm);
}

void ChannelDataRemappingAlgorithm::compute() {
  computeImages(kFrame, *this, m_input, m_progress, m_status, m_output);
}

OwningDataList ChannelDataRemappingAlgorithm::takeOutput() {
  return takeImages(m_output);
}

void ChannelDataRemappingAlgorithm::updateResultingFrameAcquisition(const FrameAcquisition& input,
                                                                    std::unique_lock<std::mutex>& /*lock*/) const {
  if (input.events().empty()) throw std::runtime_error("Input FrameAcquisition has no events");
  const auto apertureSize = [](const PulseEchoEvent& event) {
    return event.receive.apertureLast - event.receive.apertureFirst + 1;
  };
  const int channels = apertureSize(input.events().front());
  for (const PulseEchoEvent& event : input.events())
    if (apertureSize(event) != channels)
      throw std::runtime_error("Input FrameAcquisition has events with different number of receiving channels");
  if (channels < 1)
    throw std::runtime_error(
        fmt::format("Input FrameAcquisition has events that receive on {} elements; at least one is needed", channels));

  FrameAcquisition& result = m_impl->resultComponents.add<FrameAcquisition>(input);
  for (PulseEchoEvent& event : result.events())
    event.receive.elementToChannelMapping =
        calculateElementToChannelMapping(event.receive.apertureFirst, event.receive.apertureLast, channels);
  m_impl->resultComponents.add<ChannelDataLayout>();
}

std::pair<std::shared_ptr<SharedImage>, DataComponentList>
ChannelDataRemappingAlgorithm::processImage(const SharedImage& input, const DataComponentList& components) const {
  const auto fail = [](const char* message) {
    Log::error(kFrame.className, "{}", message);
    return std::pair<std::shared_ptr<SharedImage>, DataComponentList>();
  };
  if (!isChannelData(components)) return fail("Input image does not represent channel data");

  std::shared_ptr<const GPU::MapChannelsAndTranspose> remapper;
  DataComponentList out = components;
  {
    std::unique_lock lock(m_impl->mutex);
    const FrameAcquisition& acquisition = *getFrameAcquisition(components);
    if (!m_impl->inputAcquisition || *m_impl->inputAcquisition != acquisition) {
      m_impl->inputAcquisition = acquisition;
      updateResultingFrameAcquisition(acquisition, lock);
      m_impl->remapper = std::make_shared<GPU::MapChannelsAndTranspose>(
          acquisition, *m_impl->resultComponents.get<FrameAcquisition>());
    }
    remapper = m_impl->remapper;
    out.add(m_impl->resultComponents);
  }
  if (!remapper) return fail("Remapper not instantiated, cannot compute");

  const auto* const given = components.get<ChannelDataLayout>();
  std::shared_ptr<SharedImage> image = remapper->mapAndTranspose(input, given ? *given : ChannelDataLayout());
  if (!image) return fail("Remapper did not produce an output");
  image->setModality(input.modality());
  return {std::move(image), std::move(out)};
}

} // namespace Kelvaris::US
