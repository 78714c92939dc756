// How the stream makes its images: the layers of pulses, which are kept, and their sum with noise.
#include "simulation/SimulatedChannelDataStream.h"

#include "Core/Log.h"
#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/ShaderStorageBuffer.h"
#include "Lib/ImageProcessing.h"
#include "processing/SignalProcessing.h"
#include "simulation/LayerSum.h"
#include "simulation/PulseLocations.h"
#include "simulation/SimulationMemory.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>
#include <stdexcept>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "SimulatedChannelDataStream";
constexpr float kSine = 4.712389f; ///< the phase with which a cosine begins at zero

std::shared_ptr<SharedImage> emptyLayer(const FrameSizes& sizes) {
  std::shared_ptr<MemImage> zeros =
      MemImage::create(ImageDescriptor(PixelFloat, sizes.channels, sizes.samples, sizes.events));
  std::memset(zeros->data(), 0, zeros->byteSize());
  return std::make_shared<SharedImage>(std::make_shared<GlImage>(*zeros));
}

GlImage pulseOf(const PulseEchoEvent& event, const FrameSizes& sizes, double amplitude) {
  return GlImage(Signal::sinusoidReal(static_cast<float>(event.receive.samplingFrequency),
                                      static_cast<float>(event.transmit.pulseFrequency), sizes.pulseLength,
                                      static_cast<float>(amplitude), kSine, 0));
}

/// Brings the image to the frame's number of samples: the end is cut off, or zeros are added to it.
void fitSamples(std::unique_ptr<SharedImage>& image, const FrameSizes& sizes) {
  const int height = image->descriptor().height();
  const Eigen::Vector3i none = Eigen::Vector3i::Zero();
  if (height > sizes.samples)
    image = ImageProcessing::createCropped(*image, none, {sizes.channels, sizes.samples, sizes.events});
  else if (height < sizes.samples)
    image = ImageProcessing::createPadded(*image, none, {0, sizes.samples - height, 0});
}

} // namespace

void SimulatedChannelDataStream::updateIfRequired() {
  if (!updateRequired()) return;
  if (!m_overlay)
    throw GL::Error("The stream was built without OpenGL: " + GL::ContextManager::get().unavailableReason());
  ++m_frameCounter;
  updateImages();
}

void SimulatedChannelDataStream::updateImages() {
  for (Frame& frame : m_frames)
    frame.image.reset();
  updateWaveforms();
  if (!m_canBeSimulated) return;
  try {
    for (Frame& frame : m_frames)
      updateImage(frame);
  } catch (...) {
    m_dirty = true; // the images are to be made by the next beat, if there is one
    throw;
  }
}

void SimulatedChannelDataStream::updateWaveforms() {
  if (!m_dirty) return;
  m_canBeSimulated = false;
  for (Frame& frame : m_frames) {
    frame.transmitLayer.reset();
    frame.echoLayer.reset();
  }
  int index = 0;
  try {
    std::vector<FrameSizes> sizes;
    for (const Frame& frame : m_frames) {
      if (!frame.acquisition().events().empty()) {
        sizes.emplace_back(frame.acquisition());
        if (!(m_echoAmplitude > 0.0) || m_useSimus) sizes.back().transmitElements = 0; // no location table of echoes
      }
      ++index;
    }
    checkMemory(sizes, ImageDescriptor::bytesPerComponent(m_pixelType), SimulationLimits::ofThisMachine());
    index = 0;
    for (Frame& frame : m_frames) {
      if (m_transmitAmplitude > 0.0) updateTransmitWaveform(frame);
      if (m_echoAmplitude > 0.0 && !m_useSimus) updateSimpleScatteredWaveform(frame, index);
      ++index;
    }
    m_canBeSimulated = true;
  } catch (const std::invalid_argument& error) {
    Log::error(kCategory, "FrameAcquisition {} can't be simulated: {}. Nothing is emitted", index, error.what());
  } catch (const std::length_error& error) {
    Log::error(kCategory, "{}. Nothing is emitted", error.what());
  }
  m_dirty = false;
}

void SimulatedChannelDataStream::updateTransmitWaveform(Frame& frame) {
  const FrameAcquisition& acquisition = frame.acquisition();
  if (acquisition.events().empty()) return;
  const PulseEchoEvent& first = acquisition.events().front();
  const double samplingFrequency = first.receive.samplingFrequency, pulseFrequency = first.transmit.pulseFrequency;
  constexpr double least = std::numeric_limits<double>::epsilon();
  if (!(samplingFrequency >= least && pulseFrequency >= least)) {
    Log::error(kCategory, "Invalid frequency configuration: receiveSamplingFrequency {}, pulseFrequency {}",
               samplingFrequency, pulseFrequency);
    return;
  }
  const FrameSizes sizes(acquisition);
  reportLostChannels(acquisition, sizes);
  if (sizes.pulseLength == 0) return;
  const GL::ShaderStorageBuffer locations(transmitPulseLocations(acquisition, sizes));
  auto layer = emptyLayer(sizes);
  m_overlay->overlayPulses(*layer, pulseOf(first, sizes, m_transmitAmplitude), locations, 1, sizes.channels,
                           sizes.events);
  frame.transmitLayer = std::move(layer);
}

void SimulatedChannelDataStream::updateSimpleScatteredWaveform(Frame& frame, int index) {
  const FrameAcquisition& acquisition = frame.acquisition();
  if (acquisition.events().empty()) return;
  const FrameSizes sizes(acquisition);
  if (sizes.pulseLength == 0) return;
  const std::vector<Eigen::Vector3d> offsets = offsetsOf(index);
  const GlImage pulse = pulseOf(acquisition.events().front(), sizes, m_echoAmplitude);
  auto layer = emptyLayer(sizes);
  const std::size_t most = scatterersAtOnce(sizes, SimulationLimits::ofThisMachine());
  for (std::span<const Eigen::Vector3d> rest(m_scatterers); !rest.empty();) {
    const auto portion = rest.first(std::min(most, rest.size()));
    const GL::ShaderStorageBuffer locations(echoPulseLocations(acquisition, sizes, portion, offsets));
    m_overlay->overlayPulses(*layer, pulse, locations, sizes.transmitElements * static_cast<int>(portion.size()),
                             sizes.channels, sizes.events);
    rest = rest.subspan(portion.size());
  }
  frame.echoLayer = std::move(layer);
}

/// How far the phantom has moved in each event, in mm.
std::vector<Eigen::Vector3d> SimulatedChannelDataStream::offsetsOf(int frame) const {
  std::vector<Eigen::Vector3d> offsets;
  for (const double startTime : computePerEventStartTimes(frame))
    offsets.push_back(m_interEventPhantomMotion * startTime);
  return offsets;
}

void SimulatedChannelDataStream::updateImage(Frame& frame) {
  if (frame.acquisition().events().empty() || (m_useSimus && !frame.simusImage)) return;
  const FrameSizes sizes(frame.acquisition());
  std::vector<std::shared_ptr<SharedImage>> layers;
  if (m_transmitAmplitude > 0.0 && frame.transmitLayer) layers.push_back(frame.transmitLayer);
  if (m_echoAmplitude > 0.0 && frame.echoLayer) layers.push_back(frame.echoLayer);
  // Where OpenGL runs on the processor, shaders only take longer than the processor by itself.
  const int strategy = GL::ContextManager::get().isSoftware() ? 0 : 2;
  std::unique_ptr<SharedImage> image = noiseAndLayers(
      ImageDescriptor(m_pixelType, sizes.channels, sizes.samples, sizes.events),
      static_cast<float>(std::max(m_noiseAmplitude.load(), 0.0)), static_cast<int>(m_frameCounter), layers, strategy);
  if (m_echoAmplitude > 0.0 && m_useSimus) {
    fitSamples(frame.simusImage, sizes);
    addLayer(*image, *frame.simusImage, static_cast<float>(m_echoAmplitude), strategy);
  }
  if (m_channelDataLayout != ChannelDataLayout())
    image->assign(permuteChannelData(*image->mem(), ChannelDataLayout(), m_channelDataLayout));
  frame.image = std::move(image);
}

} // namespace Kelvaris::US
