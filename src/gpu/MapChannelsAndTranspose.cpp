#include "gpu/MapChannelsAndTranspose.h"

#include "CUDA/Utils.h"
#include "CUDA/VectorTypes.h"
#include "Core/Log.h"
#include "gpu/MapChannelsLaunch.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace Kelvaris::US::GPU {
namespace {

constexpr const char* kCategory = "MapChannelsAndTranspose";

int apertureSize(const PulseEchoEvent& event) {
  return event.receive.apertureLast - event.receive.apertureFirst + 1;
}

/// Everything but the mapping; NaN differs from everything.
bool receiveAlike(const PulseEchoEvent::Receive& a, const PulseEchoEvent::Receive& b) {
  return a.apertureFirst == b.apertureFirst && a.apertureLast == b.apertureLast &&
         a.samplingFrequency == b.samplingFrequency && a.startTime == b.startTime && a.endTime == b.endTime;
}

/// The channel of element k of the aperture of event v. Throws std::runtime_error unless there is one from 0 to
/// `limit` - 1.
int channelOf(const PulseEchoEvent& event, int v, int k, const char* name, int limit) {
  const std::vector<int>& mapping = event.receive.elementToChannelMapping;
  const int element = event.receive.apertureFirst + k;
  if (static_cast<std::size_t>(k) >= mapping.size())
    throw std::runtime_error(fmt::format("Event {} of the {} FrameAcquisition receives on {} elements ({} to {}), but "
                                         "maps only {} of them to channels",
                                         v, name, apertureSize(event), event.receive.apertureFirst,
                                         event.receive.apertureLast, mapping.size()));
  const int channel = mapping[static_cast<std::size_t>(k)];
  if (channel < 0)
    throw std::runtime_error(fmt::format("Event {} of the {} FrameAcquisition maps element {} to channel {}; channels "
                                         "count from 0",
                                         v, name, element, channel));
  if (channel >= limit)
    throw std::runtime_error(fmt::format("Event {} of the {} FrameAcquisition maps element {} to channel {}, but its "
                                         "aperture has the channels 0 to {}",
                                         v, name, element, channel, limit - 1));
  return channel;
}

template <typename T> void launch(const MapChannelsArguments& arguments) {
#if KELVARIS_HAVE_CUDA
  if (CUDA::Device::isCuda()) {
    const CUDA::KernelBuffer& o = arguments.output;
    const auto shape = CUDA::Utils::kernelBlocks(CUDA::Dim3{o.width, o.height, o.slices});
    CUDA::Utils::printError(mapChannelsOnCuda<T>(shape, arguments));
    return;
  }
#endif
  mapChannelsOnCpu<T>(arguments);
}

} // namespace

MapChannelsAndTranspose::MapChannelsAndTranspose(const FrameAcquisition& input, const FrameAcquisition& output) {
  CUDA::Utils::PrimaryContext::ensureCurrent();
  const std::vector<PulseEchoEvent>&from = input.events(), &to = output.events();
  constexpr const char* mismatch = "Input and output FrameAcquisition do not match";
  if (input.transducer() != output.transducer() || from.size() != to.size()) throw std::runtime_error(mismatch);
  if (from.empty()) throw std::runtime_error("Empty input FrameAcquisition");
  const int channels = apertureSize(to.front());
  for (std::size_t v = 0; v < from.size(); ++v) {
    if (from[v].transmit != to[v].transmit || !receiveAlike(from[v].receive, to[v].receive))
      throw std::runtime_error(mismatch);
    if (apertureSize(to[v]) != channels)
      throw std::runtime_error("Inconsistent receive channels across output FrameAcquisition");
  }
  if (channels < 1)
    throw std::runtime_error(fmt::format("The receive apertures must have at least one element, not {}", channels));

  TypedImage<int> table(channels, static_cast<int>(from.size()));
  std::fill_n(table.pointer(), table.size(), 0);
  for (int v = 0; v < table.height(); ++v)
    for (int k = 0; k < channels; ++k) {
      const auto n = static_cast<std::size_t>(v);
      table.setValue(channelOf(from[n], v, k, "input", std::numeric_limits<int>::max()),
                     channelOf(to[n], v, k, "output", channels), v);
    }
  m_table = std::make_unique<CUDA::DeviceBufferImage>(table);
}

std::unique_ptr<SharedImage> MapChannelsAndTranspose::mapAndTranspose(const SharedImage& input,
                                                                      ChannelDataLayout layout) const {
  CUDA::Utils::PrimaryContext::ensureCurrent();
  ImageDescriptor descriptor = input.descriptor();
  const int pixelType = descriptor.pixelType();
  if (pixelType != PixelFloat && pixelType != PixelInt16) {
    Log::error(kCategory, "Unsupported pixel type");
    return nullptr;
  }
  if (descriptor.channels() >= 3) {
    Log::error(kCategory, "Only single or dual channel images are supported");
    return nullptr;
  }
  if (!layout.isPermutation()) {
    Log::error(kCategory, "The layout of the channel data must name channels, fast time and slow time once each");
    return nullptr;
  }
  const Eigen::Vector3i d = descriptor.dimensions();
  descriptor.setDimensions(
      {d[layout.channelsAxisIndex()], d[layout.fastTimeAxisIndex()], d[layout.slowTimeAxisIndex()]});
  const auto output = std::make_shared<CUDA::DeviceBufferImage>(descriptor);
  const auto data = input.sharedCustom<CUDA::DeviceBufferImage>();

  const MapChannelsArguments arguments{data->kernelBuffer(),       output->kernelBuffer(),
                                       m_table->kernelBuffer(),    layout.channelsAxisIndex(),
                                       layout.fastTimeAxisIndex(), layout.slowTimeAxisIndex()};
  const bool real = descriptor.channels() == 1;
  if (pixelType == PixelFloat)
    real ? launch<float>(arguments) : launch<CUDA::float2>(arguments);
  else
    real ? launch<short>(arguments) : launch<CUDA::short2>(arguments);
  return std::make_unique<SharedImage>(output);
}

} // namespace Kelvaris::US::GPU
