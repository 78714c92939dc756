#include "simulation/SimulatedChannelDataStream.h"

#include "CUDA/DeviceBufferImage.h"
#include "CUDA/Utils.h"
#include "Core/Log.h"
#include "Core/LongWork.h"
#include "Core/Properties.h"
#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "SimulatedChannelDataStream";

/// Whether a frame can be simulated with the first event's sizes and pulse.
bool agree(const PulseEchoEvent& a, const PulseEchoEvent& b) {
  const auto width = [](const auto& aperture) { return std::int64_t{aperture.apertureLast} - aperture.apertureFirst; };
  return width(a.receive) == width(b.receive) && width(a.transmit) == width(b.transmit) &&
         a.transmit.pulseFrequency == b.transmit.pulseFrequency && a.transmit.pulseLength == b.transmit.pulseLength &&
         a.receive.samplingFrequency == b.receive.samplingFrequency && a.receive.endTime == b.receive.endTime;
}

/// Reads `key`, if it is there, into `value`, unless accept() refuses it.
template <typename T, typename Stored, typename Accept>
void read(const Properties& properties, const char* key, Stored& value, Accept&& accept) {
  T read{};
  if (properties.param(key, read) && accept(read)) value = static_cast<typename Stored::value_type>(read);
}

constexpr auto kAnything = [](const auto&) { return true; };

} // namespace

SimulatedChannelDataStream::SimulatedChannelDataStream() : ImageStream("Simulated Channel Data Stream") {
  if (GL::ContextManager::get().isAvailable()) {
    const GL::ContextManager::ActivationGuard guard;
    m_overlay = std::make_unique<PulseOverlay>();
  }
  CUDA::Utils::PrimaryContext::ensureCurrent();
  setModality(Data::Ultrasound);
  setKind(Data::VolumeStreamKind);
  updateScatterers();
}

SimulatedChannelDataStream::~SimulatedChannelDataStream() {
  closeAsync().wait();
  if (!m_overlay) return;
  try {
    const GL::ContextManager::ActivationGuard guard;
    GL::finish();
  } catch (const GL::Error& error) {
    Log::warning(kCategory, "OpenGL's last work can't be waited for: {}", error.what());
  }
}

const FrameAcquisition& SimulatedChannelDataStream::Frame::acquisition() const {
  return *components.get<FrameAcquisition>();
}

std::unique_lock<std::mutex> SimulatedChannelDataStream::takeTurn() const {
  const std::scoped_lock next(m_nextTurn);
  return std::unique_lock(m_mutex);
}

bool SimulatedChannelDataStream::acceptTargetFrameRate(double rate) const {
  if (rate >= 1e-3 && rate <= 1e9) return true;
  Log::error(kCategory, "A targetFrameRate of {} per second can't be kept; it must be from 0.001 to 1e9", rate);
  return false;
}

bool SimulatedChannelDataStream::acceptPixelType(int type) const {
  if (ImageDescriptor::bytesPerComponent(type) != 0) return true;
  Log::error(kCategory, "There is no pixelType {}; it must be one of 5120 to 5126, 5130 and 5131", type);
  return false;
}

bool SimulatedChannelDataStream::acceptLayout(const ChannelDataLayout& layout) const {
  if (layout.isPermutation()) return true;
  Log::error(kCategory,
             "A ChannelDataLayout ({}, {}, {}) can't be made; it must carry each of the axes 0, 1 and 2 once",
             static_cast<int>(layout.axisSemantics(0)), static_cast<int>(layout.axisSemantics(1)),
             static_cast<int>(layout.axisSemantics(2)));
  return false;
}

bool SimulatedChannelDataStream::acceptAmplitude(const char* name, double amplitude) const {
  if (std::abs(amplitude) <= std::numeric_limits<float>::max()) return true;
  Log::error(kCategory, "{} can't be {}; it must be a number from -3e38 to 3e38", name, amplitude);
  return false;
}

bool SimulatedChannelDataStream::acceptVector(const char* name, const Eigen::Vector3d& vector) const {
  if (vector.allFinite()) return true;
  Log::error(kCategory, "{} can't be ({}, {}, {}); it must be three numbers", name, vector.x(), vector.y(), vector.z());
  return false;
}

void SimulatedChannelDataStream::setTargetFrameRate(double rate) {
  if (!acceptTargetFrameRate(rate)) return;
  const auto lock = takeTurn();
  m_targetFrameRate = rate;
}

void SimulatedChannelDataStream::setAmplitude(const char* name, std::atomic<double>& amplitude, double value,
                                              bool setsDirty) {
  if (!acceptAmplitude(name, value)) return;
  const auto lock = takeTurn();
  amplitude = value;
  m_dirty = m_dirty || setsDirty;
}

void SimulatedChannelDataStream::setEchoAmplitude(double amplitude) {
  setAmplitude("echoAmplitude", m_echoAmplitude, amplitude, false);
}

void SimulatedChannelDataStream::setNoiseAmplitude(double amplitude) {
  setAmplitude("noiseAmplitude", m_noiseAmplitude, amplitude, false);
}

void SimulatedChannelDataStream::setTransmitAmplitude(double amplitude) {
  setAmplitude("transmitAmplitude", m_transmitAmplitude, amplitude, true);
}

void SimulatedChannelDataStream::setPixelType(PixelType type) {
  if (!acceptPixelType(type)) return;
  const auto lock = takeTurn();
  m_pixelType = type;
  m_dirty = true;
}

void SimulatedChannelDataStream::setUseSIMUS(bool use) {
  const auto lock = takeTurn();
  m_useSimus = use;
  updateSimusData();
  m_dirty = true;
}

void SimulatedChannelDataStream::setPhantomOrigin(const Eigen::Vector3d& origin) {
  if (!acceptVector("phantomOrigin", origin)) return;
  const auto lock = takeTurn();
  m_phantomOrigin = origin;
  updateScatterers();
  updateSimusData();
}

void SimulatedChannelDataStream::setInterEventPhantomMotion(const Eigen::Vector3d& motion) {
  if (!acceptVector("interEventPhantomMotion", motion)) return;
  const auto lock = takeTurn();
  m_interEventPhantomMotion = motion;
  updateScatterers();
  updateSimusData();
}

void SimulatedChannelDataStream::setPhantomType(PhantomType type) {
  const auto lock = takeTurn();
  m_phantomType = type;
  updateScatterers();
  updateSimusData();
}

void SimulatedChannelDataStream::setChannelDataLayout(const ChannelDataLayout& layout) {
  if (!acceptLayout(layout)) return;
  const auto lock = takeTurn();
  m_channelDataLayout = layout;
  for (Frame& frame : m_frames)
    frame.components.add<ChannelDataLayout>(layout);
  updateSimusData();
  m_dirty = true;
}

void SimulatedChannelDataStream::setAcquisitionSequence(const AcquisitionSequence& sequence) {
  const auto lock = takeTurn();
  storeSequence(sequence);
}

bool SimulatedChannelDataStream::storeSequence(const AcquisitionSequence& sequence) {
  if (sequence.numFrameAcquisitions() == 0) {
    Log::error(kCategory, "AcquisitionSequence must contain at least one FrameAcquisition");
    return false;
  }
  for (int i = 0; i < sequence.numFrameAcquisitions(); ++i) {
    const auto& events = sequence.frameAcquisitions()[static_cast<std::size_t>(i)].events();
    if (events.empty()) {
      Log::error(kCategory, "FrameAcquisition {} has no events", i);
      return false;
    }
    if (!std::all_of(events.begin(), events.end(), [&](const PulseEchoEvent& e) { return agree(e, events.front()); }))
      Log::warning(kCategory, "FrameAcquisition has inconsistencies among the events");
  }

  std::vector<Frame> frames(static_cast<std::size_t>(sequence.numFrameAcquisitions()));
  try {
    for (int i = 0; i < sequence.numFrameAcquisitions(); ++i) {
      DataComponentList& components = frames[static_cast<std::size_t>(i)].components;
      components.add<FrameAcquisition>(sequence.effectiveFrameAcquisition(i));
      components.add<FrameGeometryMetadata>();
      components.add<UltrasoundMetadata>();
    }
  } catch (const std::logic_error& error) { // what was stored may be anything
    Log::error(kCategory,
               "The AcquisitionSequence is inconsistent: its event order names events or regions that its frames don't "
               "have ({})",
               error.what());
    return false;
  }
  m_acquisitionSequence = sequence;
  m_numFrameAcquisitions = sequence.numFrameAcquisitions();
  m_frames = std::move(frames);
  updateSimusData();
  m_dirty = true;
  return true;
}

void SimulatedChannelDataStream::updateScatterers() {
  m_scatterers = phantomScatterers(m_phantomType, m_phantomOrigin);
  m_dirty = true;
}

void SimulatedChannelDataStream::updateSimusData() {
  const auto dropSimpleEchoes = [&] {
    for (Frame& frame : m_frames)
      frame.echoLayer.reset();
  };
  if (m_acquisitionSequence.numFrameAcquisitions() == 0 || m_acquisitionSequence.numEvents() == 0) {
    dropSimpleEchoes();
    return;
  }
  const auto dropSimusImages = [&] {
    for (Frame& frame : m_frames)
      frame.simusImage.reset();
  };
  if (m_useSimus) {
    dropSimusImages();
    const LongWork work;
    int index = 0;
    for (Frame& frame : m_frames) {
      const LongWork part(index / static_cast<double>(m_frames.size()),
                          (index + 1) / static_cast<double>(m_frames.size()));
      frame.simusImage = simulateByChannel(m_simus, frame.acquisition(), m_channelDataLayout, m_scatterers,
                                           offsetsOf(index++), m_cacheSimusEchos);
      if (frame.simusImage) continue;
      Log::warning(kCategory, "SIMUS simulation failed, falling back to simple echos");
      m_useSimus = false;
      break;
    }
  }
  if (m_useSimus) {
    dropSimpleEchoes();
    return;
  }
  dropSimusImages();
  m_dirty = true;
}

std::vector<double> SimulatedChannelDataStream::computePerEventStartTimes(int frame) const {
  std::vector<double> startTimes;
  const auto& order = m_acquisitionSequence.eventOrder();
  const auto& delays = m_acquisitionSequence.interEventDelays();
  double time = 0.0;
  for (std::size_t k = 0; k < order.size(); ++k) {
    if (order[k].acquisitionIndex == frame) startTimes.push_back(time);
    if (k < delays.size()) time += delays[k].value_or(0.0);
  }
  return startTimes;
}

std::unique_ptr<SharedImage> SimulatedChannelDataStream::cloneForEmission(const SharedImage& image) const {
  std::unique_ptr<SharedImage> clone = image.clone(1);
  clone->setModality(modality());
  // What follows on a CUDA device finds the samples there already. On the processor it would be one more copy.
  if (CUDA::Device::isCuda()) {
    CUDA::Utils::PrimaryContext::ensureCurrent();
    clone->sharedCustom<CUDA::DeviceBufferImage>();
  }
  return clone;
}

Stream::Continuation SimulatedChannelDataStream::doWork() {
  const double rate = m_targetFrameRate;
  const auto start = Continuation::Clock::now();
  auto images = std::make_shared<SharedImageSet>();
  images->setModality(modality());
  images->setVolumetric(true);
  auto data = std::make_shared<ImageStreamData>(images);
  {
    const auto lock = takeTurn();
    updateIfRequired();
    for (const Frame& frame : m_frames)
      if (frame.image) {
        images->elementwiseComponents().add(frame.components, images->size());
        images->add(cloneForEmission(*frame.image), m_deviceTimestamp);
      }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    data->setTimestampArrival(
        static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()));
    data->setTimestampDevice(static_cast<std::uint64_t>(m_deviceTimestamp));
  }
  if (data->size() > 0) dataSignal.emitSignal(data);
  m_deviceTimestamp += std::trunc(1000.0 / rate);
  return Continuation::at(start + std::chrono::nanoseconds(static_cast<std::int64_t>(1e9 / rate)));
}

std::vector<std::pair<std::unique_ptr<SharedImage>, DataComponentList>>
SimulatedChannelDataStream::getNextAcquisition() {
  const GL::ContextManager::ActivationGuard guard;
  const auto lock = takeTurn();
  updateIfRequired();
  std::vector<std::pair<std::unique_ptr<SharedImage>, DataComponentList>> acquisition;
  for (const Frame& frame : m_frames)
    if (frame.image) acquisition.emplace_back(cloneForEmission(*frame.image), frame.components);
  return acquisition;
}

void SimulatedChannelDataStream::configure(const Properties* properties) {
  if (!properties) return;
  const Properties& p = *properties;
  const auto amplitude = [&](const char* name) {
    return [this, name](double value) { return acceptAmplitude(name, value); };
  };
  const auto lock = takeTurn();
  AcquisitionSequence sequence = m_acquisitionSequence;
  sequence.configure(p.findSubProperties("sequence"));
  ChannelDataLayout layout = m_channelDataLayout;
  layout.configure(p.findSubProperties("channelDataLayout"));
  read<bool>(p, "useSIMUS", m_useSimus, kAnything);
  read<bool>(p, "cacheSIMUSechos", m_cacheSimusEchos, kAnything);
  read<int>(p, "pixelType", m_pixelType, [&](int type) { return acceptPixelType(type); });
  read<double>(p, "targetFrameRate", m_targetFrameRate, [&](double rate) { return acceptTargetFrameRate(rate); });
  read<double>(p, "echoAmplitude", m_echoAmplitude, amplitude("echoAmplitude"));
  read<double>(p, "transmitAmplitude", m_transmitAmplitude, amplitude("transmitAmplitude"));
  read<double>(p, "noiseAmplitude", m_noiseAmplitude, amplitude("noiseAmplitude"));
  if (Eigen::Vector3d origin; p.param("phantomOrigin", origin) && acceptVector("phantomOrigin", origin))
    m_phantomOrigin = origin;
  read<int>(p, "phantomType", m_phantomType, kAnything);
  if (acceptLayout(layout)) m_channelDataLayout = layout;
  updateScatterers();
  if (!storeSequence(sequence)) updateSimusData(); // the present one goes on, with the settings that were read
}

void SimulatedChannelDataStream::configuration(Properties* properties) const {
  if (!properties) return;
  const auto lock = takeTurn();
  properties->setParam("useSIMUS", m_useSimus.load());
  properties->setParam("cacheSIMUSechos", m_cacheSimusEchos.load());
  properties->setParam("pixelType", static_cast<int>(m_pixelType.load()));
  properties->setParam("targetFrameRate", m_targetFrameRate.load());
  properties->setParam("echoAmplitude", m_echoAmplitude.load());
  properties->setParam("transmitAmplitude", m_transmitAmplitude.load());
  properties->setParam("noiseAmplitude", m_noiseAmplitude.load());
  properties->setParam("phantomOrigin", m_phantomOrigin);
  properties->setParam("phantomType", static_cast<int>(m_phantomType.load()));
  m_acquisitionSequence.configuration(&properties->subProperties("sequence"));
  m_channelDataLayout.configuration(&properties->subProperties("channelDataLayout"));
}

} // namespace Kelvaris::US
