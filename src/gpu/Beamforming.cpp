#include "gpu/Beamforming.h"

#include "CUDA/Utils.h"
#include "Core/Log.h"
#include "Lib/IntensityMask.h"
#include "US/FrameGeometry.h"
#include "gpu/BeamformingLaunch.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace Kelvaris::US::GPU {
namespace {

CUDA::float3 toFloat3(const Eigen::Vector3d& v) {
  return {static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())};
}

EventInfo toEventInfo(const PulseEchoEvent& event) {
  return {.speedOfSound = static_cast<float>(event.transmit.speedOfSound),
          .pulseFrequency = static_cast<float>(event.transmit.pulseFrequency),
          .eventType = static_cast<int>(event.transmit.eventType),
          .timeZeroPoint = toFloat3(event.transmit.timeZeroPoint),
          .waveFiducial = toFloat3(event.transmit.waveFiducial),
          .waveStart = toFloat3(event.transmit.waveStart),
          .apertureFirst = event.receive.apertureFirst,
          .apertureLast = event.receive.apertureLast,
          .samplingFrequency = static_cast<float>(event.receive.samplingFrequency),
          .startTime = static_cast<float>(event.receive.startTime)};
}

/// The first `count` entries of `axis`, as an image of its own.
std::shared_ptr<CUDA::DeviceBufferImage> cropped(const MemImage& image, int axis, int count) {
  ImageDescriptor descriptor = image.descriptor();
  Eigen::Vector3i dimensions = descriptor.dimensions();
  dimensions[axis] = count;
  descriptor.setDimensions(dimensions);
  const auto result = MemImage::create(descriptor);
  const std::size_t pixel = static_cast<std::size_t>(descriptor.bytesPerComponent() * descriptor.channels());
  const auto* source = static_cast<const char*>(image.data());
  auto* target = static_cast<char*>(result->data());
  for (int z = 0; z < dimensions.z(); ++z)
    for (int y = 0; y < dimensions.y(); ++y)
      std::memcpy(target + result->index(0, y, z, 0) / static_cast<std::size_t>(descriptor.channels()) * pixel,
                  source + image.index(0, y, z, 0) / static_cast<std::size_t>(descriptor.channels()) * pixel,
                  static_cast<std::size_t>(dimensions.x()) * pixel);
  return std::make_shared<CUDA::DeviceBufferImage>(*result);
}

/// The positions as an image of the output's width and height, NaN where there are none.
std::shared_ptr<CUDA::DeviceBufferImage> padded(const MemImage& positions, const ImageDescriptor& output) {
  TypedImage<float> result(output.width(), output.height(), positions.slices(), 2);
  std::fill_n(result.pointer(), result.size(), std::numeric_limits<float>::quiet_NaN());
  const auto* source = static_cast<const float*>(positions.data());
  const int columns = std::min(result.width(), positions.width()), rows = std::min(result.height(), positions.height());
  for (int z = 0; z < result.slices(); ++z)
    for (int y = 0; y < rows; ++y)
      std::copy_n(source + positions.index(0, y, z, 0), 2 * columns, result.pointer() + result.index(0, y, z, 0));
  return std::make_shared<CUDA::DeviceBufferImage>(result);
}

/// An image of invalid pixels.
std::shared_ptr<CUDA::DeviceBufferImage> invalidImage(const ImageDescriptor& descriptor) {
  const auto image = MemImage::create(descriptor);
  const std::size_t count = descriptor.elementCount();
  if (descriptor.pixelType() == PixelFloat)
    std::fill_n(static_cast<float*>(image->data()), count, std::numeric_limits<float>::quiet_NaN());
  else
    std::fill_n(static_cast<short*>(image->data()), count, std::numeric_limits<short>::min());
  return std::make_shared<CUDA::DeviceBufferImage>(*image);
}

template <typename T> void launch(const BeamformingArguments& arguments) {
  const CUDA::KernelBuffer& o = arguments.output;
  const auto shape = CUDA::Utils::kernelBlocks(CUDA::Dim3{o.width, o.height, o.slices});
#if KELVARIS_HAVE_CUDA
  if (CUDA::Device::isCuda()) return CUDA::Utils::printError(beamformOnCuda<T>(shape, arguments));
#endif
  beamformOnCpu<T>(shape, arguments);
}

} // namespace

Beamforming::Beamforming(const FrameAcquisition& acquisition) {
  CUDA::Utils::PrimaryContext::ensureCurrent();
  m_pitch = acquisition.transducer().pitch();
  const std::vector<PulseEchoEvent>& events = acquisition.events();
  m_numEvents = static_cast<int>(events.size());
  std::vector<EventInfo> infos;
  infos.reserve(events.size());
  for (const PulseEchoEvent& event : events)
    infos.push_back(toEventInfo(event));
  m_events = CUDA::DeviceVector<EventInfo>(infos);

  std::vector<CUDA::float3> positions;
  for (const Eigen::Vector3d& position : acquisition.transducer().elementPositions())
    positions.push_back(toFloat3(position));
  m_numElements = static_cast<int>(positions.size());
  m_elementPositions = CUDA::DeviceVector<CUDA::float3>(positions);
  m_search = ElementSearch::fit(positions);

  constexpr auto focused = PulseEchoEvent::EventType::Focused;
  m_focused = events.size() >= 2 && events[0].transmit.eventType == focused && events[1].transmit.eventType == focused;
  fillTable(acquisition);
}

Beamforming::~Beamforming() = default;

void Beamforming::fillTable(const FrameAcquisition& acquisition) {
  constexpr int maxElements = 1 << 20; // element indices are exact as floats
  if (m_numEvents == 0 || m_numElements == 0 || m_numElements > maxElements) {
    m_problem =
        fmt::format("The acquisition has {} events and {} elements; it needs at least one of each, and at most {} "
                    "elements",
                    m_numEvents, m_numElements, maxElements);
    return;
  }
  TypedImage<int> table(m_numElements, m_numEvents);
  std::fill_n(table.pointer(), table.size(), -1);
  for (int v = 0; v < m_numEvents; ++v) {
    const PulseEchoEvent::Receive& receive = acquisition.events()[static_cast<std::size_t>(v)].receive;
    const int first = receive.apertureFirst, last = receive.apertureLast;
    if (last < first) continue;
    if (first < 0 || last >= m_numElements) {
      m_problem = fmt::format("Event {} receives on elements {} to {}, but the array has elements 0 to {}", v, first,
                              last, m_numElements - 1);
      return;
    }
    if (receive.elementToChannelMapping.size() < static_cast<std::size_t>(last - first + 1)) {
      m_problem = fmt::format("Event {} receives on {} elements ({} to {}), but maps only {} of them to channels", v,
                              last - first + 1, first, last, receive.elementToChannelMapping.size());
      return;
    }
    Channel largest{-1, v, first};
    for (int e = first; e <= last; ++e) {
      const int channel = receive.elementToChannelMapping[static_cast<std::size_t>(e - first)];
      if (channel < 0) {
        m_problem = fmt::format("Event {} maps element {} to channel {}; channels count from 0", v, e, channel);
        return;
      }
      table.setValue(channel, e, v);
      if (channel > largest.channel) largest = {channel, v, e};
    }
    m_largestChannels.push_back(largest);
  }
  m_elementToChannel = std::make_shared<CUDA::DeviceBufferImage>(table);
}

std::optional<std::string> Beamforming::problem(const ImageDescriptor& data, const ChannelDataLayout& layout,
                                                const ImageDescriptor& output, const ImageDescriptor& positions) const {
  if (!m_problem.empty()) return m_problem;
  if (!layout.isPermutation())
    return fmt::format(
        "The layout of the channel data must name channels, fast time and slow time once each, not {} {} {}",
        static_cast<int>(layout.axisSemantics(0)), static_cast<int>(layout.axisSemantics(1)),
        static_cast<int>(layout.axisSemantics(2)));
  // Sample indices must be exact as floats, and a row's bytes must fit 32 bits.
  constexpr int maxSamples = 1 << 24;
  const int numSamples = data.dimensions()[layout.fastTimeAxisIndex()];
  if (numSamples > maxSamples)
    return fmt::format("The channel data have {} samples per channel, at most {} can be beamformed", numSamples,
                       maxSamples);
  for (const ImageDescriptor* d : {&data, &output, &positions}) {
    if (!d->isValid()) return fmt::format("An image of the beamformer is not valid: {}", d->toString());
    if (static_cast<std::int64_t>(d->width()) * d->bytesPerComponent() * d->channels() >
        std::numeric_limits<int>::max())
      return fmt::format("An image of the beamformer is too wide: {}", d->toString());
  }
  if (output.pixelType() != data.pixelType() || output.channels() != data.channels())
    return fmt::format("The beamformed image ({}) must have the pixel type and components of the channel data ({})",
                       output.toString(), data.toString());
  const int numChannels = data.dimensions()[layout.channelsAxisIndex()];
  const int numEvents = std::min(m_numEvents, data.dimensions()[layout.slowTimeAxisIndex()]);
  for (const Channel& c : m_largestChannels)
    if (c.event < numEvents && c.channel >= numChannels)
      return fmt::format("Event {} maps element {} to channel {}, but the channel data have channels 0 to {}", c.event,
                         c.element, c.channel, numChannels - 1);
  if (positions.pixelType() != PixelFloat || positions.channels() != 2 ||
      (positions.slices() != 1 && positions.slices() < numEvents))
    return fmt::format("Sample positions must be float images of two components in 1 or {} slices, not {}", numEvents,
                       positions.toString());
  return std::nullopt;
}

std::shared_ptr<SharedImage> Beamforming::beamform(const SharedImage& input, const ChannelDataLayout& layout,
                                                   const FrameGeometry& geometry, const SharedImage& samplePositions,
                                                   double fNumber, double outputValueScaling, BeamformerType type,
                                                   bool coherentCompounding) const {
  const ImageDescriptor& data = input.descriptor();
  if (data.channels() > 2 || (data.pixelType() != PixelFloat && data.pixelType() != PixelInt16)) {
    Log::error("", "Unsupported input data type for beamforming.");
    return nullptr;
  }
  const ImageDescriptor& outputDescriptor = geometry.imgDescPrescan();
  if (const auto text = problem(data, layout, outputDescriptor, samplePositions.descriptor())) {
    Log::error("Beamforming", "{}", *text);
    return nullptr;
  }
  CUDA::Utils::PrimaryContext::ensureCurrent();

  const int slowTimeAxis = layout.slowTimeAxisIndex(), slowTimes = data.dimensions()[slowTimeAxis];
  std::shared_ptr<CUDA::DeviceBufferImage> channelData;
  if (slowTimes > m_numEvents) {
    std::call_once(m_warned, [&] {
      Log::warning(
          "Beamforming",
          "The channel data have {} entries of slow time, but the acquisition has {} events; the others are ignored",
          slowTimes, m_numEvents);
    });
    channelData = cropped(*input.mem(), slowTimeAxis, m_numEvents);
  } else {
    channelData = input.sharedCustom<CUDA::DeviceBufferImage>();
  }
  const bool covered = samplePositions.descriptor().width() >= outputDescriptor.width() &&
                       samplePositions.descriptor().height() >= outputDescriptor.height();
  const auto positions = covered ? samplePositions.sharedCustom<CUDA::DeviceBufferImage>()
                                 : padded(*samplePositions.mem(), outputDescriptor);
  const Workmode workmode = m_focused             ? Workmode::PerLine
                            : coherentCompounding ? Workmode::CoherentCompound
                                                  : Workmode::PerEvent;
  // The kernel leaves out columns or slices without an event.
  const int numEvents = std::min(m_numEvents, slowTimes);
  const bool isFull = workmode == Workmode::PerLine    ? outputDescriptor.width() <= numEvents
                      : workmode == Workmode::PerEvent ? outputDescriptor.slices() <= numEvents
                                                       : true;
  const auto output =
      isFull ? std::make_shared<CUDA::DeviceBufferImage>(outputDescriptor) : invalidImage(outputDescriptor);

  BeamformingArguments a;
  a.channelData = channelData->kernelBuffer();
  a.samplePositions = positions->kernelBuffer();
  a.output = output->kernelBuffer();
  a.events = m_events.data();
  a.elementPositions = m_elementPositions.data();
  a.numElements = m_numElements;
  a.elementToChannel = m_elementToChannel->kernelBuffer();
  a.fNumber = static_cast<float>(fNumber);
  a.outputValueScaling = static_cast<float>(outputValueScaling);
  a.pitch = static_cast<float>(m_pitch);
  a.beamformerType = type;
  a.workmode = workmode;
  a.channelsAxis = layout.channelsAxisIndex();
  a.fastTimeAxis = layout.fastTimeAxisIndex();
  a.slowTimeAxis = slowTimeAxis;
  a.search = m_search;

  const bool isFloat = data.pixelType() == PixelFloat;
  if (data.channels() == 2)
    isFloat ? launch<CUDA::float2>(a) : launch<CUDA::short2>(a);
  else
    isFloat ? launch<float>(a) : launch<short>(a);

  std::shared_ptr<SharedImage> result = input.clone(4);
  result->assign(output);
  result->setMask(
      std::make_shared<IntensityMask>(data.pixelType(), isFloat ? std::numeric_limits<double>::quiet_NaN() : -32768.0));
  return result;
}

} // namespace Kelvaris::US::GPU
