#pragma once

#include "CUDA/DeviceBufferPool.h"
#include "Lib/DataComponent.h"
#include "Lib/SharedImage.h"
#include "Stream/ImageStream.h"
#include "model/AcquisitionSequence.h"
#include "model/ChannelDataLayout.h"
#include "simulation/Phantom.h"
#include "simulation/PulseOverlay.h"
#include "simulation/SimusBridge.h"

#include <Eigen/Core>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::US {

/// A live stream of ultrasound channel data, made from nothing but an acquisition sequence, a phantom of point
/// scatterers and three amplitudes. Each beat emits one image for each frame of the sequence, with its
/// FrameAcquisition, a FrameGeometryMetadata and an UltrasoundMetadata among its components: channels along the width,
/// samples from time 0 of the event on along the height, and firings, repetitions included, along the slices; or in the
/// axis order that setChannelDataLayout() asks for.
///
/// An image is the sum of three layers, each rounded as it is added where the pixels are integers: Gaussian noise,
/// fresh in each emission; the pulse of each transmitting element, as it leaks into the channel that the element
/// receives on; and the echoes. The simple echoes know only travel times: every transmitting element gives an echo of
/// full amplitude off every scatterer in every channel, without attenuation, spreading or directivity. A pulse begins
/// at the sample in which its travel time ends. The phantom moves by its velocity times the start of each event within
/// the sequence, and is back at its place in the next emission.
///
/// What it costs: the layers of pulses are rendered anew after a change of the parameters, and are kept in 32-bit
/// floats; an emission then takes one pass of noise and the sums. Rendering takes 4 bytes x events x channels x
/// transmit elements x scatterers for the locations of the pulses, in portions of at most 64 MiB. A sequence that the
/// machine has no memory for, or whose recordings OpenGL can't hold, is told in the log before anything is allocated.
/// Then nothing is emitted until a change makes it possible, since images without their echoes would look like a
/// measurement.
///
/// Threads: the stream is built, configured and read on one thread, by rule the main thread. The setters may be called
/// on any; they wait while an emission is being computed. The stream's own worker makes the emissions, outside of the
/// lock. The getters of numbers may be called on any thread, those that return references on the one that sets.
class SimulatedChannelDataStream : public ImageStream {
public:
  /// Works without OpenGL, too, but can't be opened then: openAsync()'s future throws GL::Error with the reason.
  SimulatedChannelDataStream();
  ~SimulatedChannelDataStream() override;

  bool supportsPausing() const override { return true; }
  std::string uuid() const override { return "SimulatedChannelDataStream"; }
  /// Frames of the sequence.
  int size() const override { return m_numFrameAcquisitions; }

  double targetFrameRate() const { return m_targetFrameRate; }
  const Eigen::Vector3d& phantomOrigin() const { return m_phantomOrigin; }
  const Eigen::Vector3d& interEventPhantomMotion() const { return m_interEventPhantomMotion; }
  PhantomType phantomType() const { return m_phantomType; }
  const AcquisitionSequence& acquisitionSequence() const { return m_acquisitionSequence; }
  double echoAmplitude() const { return m_echoAmplitude; }
  double transmitAmplitude() const { return m_transmitAmplitude; }
  double noiseAmplitude() const { return m_noiseAmplitude; }
  bool useSIMUS() const { return m_useSimus; }
  bool cacheSIMUSechos() const { return m_cacheSimusEchos; }
  PixelType pixelType() const { return m_pixelType; }

  /// Values that can't be used are refused with an error in the log, and change nothing.

  /// Emissions per second, from 0.001 to 1e9.
  void setTargetFrameRate(double rate);
  /// Finite numbers. A new echo amplitude reaches the simple echoes with the next change of something else (all but
  /// rate, echo and noise amplitude); 0 or less, like that of the transmit pulses, leaves them out.
  void setEchoAmplitude(double amplitude);
  void setTransmitAmplitude(double amplitude);
  /// Standard deviation. With 0 or less there is no noise, and without changes the same images are emitted again.
  void setNoiseAmplitude(double amplitude);
  void setPixelType(PixelType type);
  void setCacheSIMUSechos(bool cache) { m_cacheSimusEchos = cache; }
  /// Echoes by SIMUS instead of the simple ones (SimusBridge). From then on every setter of sequence, layout and
  /// phantom simulates all frames, for as long as that takes, while the stream's worker waits; that only succeeds on
  /// the thread that built the stream. It is LongWork with the stream's lock held: until it is over, that thread must
  /// call no setter, nor configuration(). SIMUS turns itself off, with a warning, as soon as a simulation fails or is
  /// given up, and stays off until it is asked for again. Results are kept on disk if cacheSIMUSechos(), else all that
  /// are kept are deleted.
  void setUseSIMUS(bool use);
  /// In mm: the point, or the grid's reference point.
  void setPhantomOrigin(const Eigen::Vector3d& origin);
  /// The phantom's velocity in mm/s. Not part of the configuration.
  void setInterEventPhantomMotion(const Eigen::Vector3d& motion);
  void setPhantomType(PhantomType type);
  /// The order of the axes; it must carry each axis once. It becomes a component of the present frames' images: a new
  /// sequence drops that component until the layout is set again, while the images keep the order.
  void setChannelDataLayout(const ChannelDataLayout& layout);
  /// The sequence must have frames, and each of them events. That the events of a frame disagree in what decides its
  /// sizes and its pulse is a warning: they are simulated with those of the first event.
  void setAcquisitionSequence(const AcquisitionSequence& sequence);

  /// Start of each event of a frame in s, counted from the first event of the sequence, in the order in which they
  /// fire.
  std::vector<double> computePerEventStartTimes(int frame) const;

  /// What the next beat would emit, for callers who pull: an image of each frame with its components. Doesn't move the
  /// stream's clocks. Throws GL::Error where there is no OpenGL, and what images and their conversions throw.
  std::vector<std::pair<std::unique_ptr<SharedImage>, DataComponentList>> getNextAcquisition();

  /// Reads what is there. A sequence that is refused leaves the present one in place.
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;

protected:
  Continuation doWork() override;

private:
  /// A frame of the sequence. What is missing stays null.
  struct Frame {
    DataComponentList components;
    std::shared_ptr<SharedImage> transmitLayer; ///< float, (channels, samples, events)
    std::shared_ptr<SharedImage> echoLayer;     ///< alike, of the simple echoes
    std::unique_ptr<SharedImage> simusImage;    ///< echoes of amplitude 1 by SIMUS, in the place of the simple ones
    std::unique_ptr<SharedImage> image;         ///< as it is emitted

    const FrameAcquisition& acquisition() const; ///< the effective one
  };

  /// Takes the mutex. Who waits for it is the next to have it, also where the worker, which may hold it most of the
  /// time, asks for it again at once.
  std::unique_lock<std::mutex> takeTurn() const;

  // These need the mutex, but take it themselves nowhere.
  bool storeSequence(const AcquisitionSequence& sequence); ///< false, with a logged error: it was refused
  void updateScatterers();
  void updateSimusData();
  bool updateRequired() const { return m_dirty || m_noiseAmplitude > 0.0; }
  void updateIfRequired();
  void updateImages();
  void updateWaveforms();
  void updateTransmitWaveform(Frame& frame);
  void updateSimpleScatteredWaveform(Frame& frame, int index);
  void updateImage(Frame& frame);
  std::unique_ptr<SharedImage> cloneForEmission(const SharedImage& image) const;
  std::vector<Eigen::Vector3d> offsetsOf(int frame) const;

  void setAmplitude(const char* name, std::atomic<double>& amplitude, double value, bool setsDirty);
  bool acceptTargetFrameRate(double rate) const;
  bool acceptPixelType(int type) const;
  bool acceptLayout(const ChannelDataLayout& layout) const;
  bool acceptAmplitude(const char* name, double amplitude) const;
  bool acceptVector(const char* name, const Eigen::Vector3d& vector) const;

  CUDA::DeviceBufferPool::ActivationGuard m_deviceBuffers;
  mutable std::mutex m_mutex;
  mutable std::mutex m_nextTurn; ///< held while waiting for the other
  SimusBridge m_simus;
  std::unique_ptr<PulseOverlay> m_overlay; ///< null where there is no OpenGL

  std::atomic<bool> m_useSimus = true;
  std::atomic<bool> m_cacheSimusEchos = true;
  std::atomic<PixelType> m_pixelType = PixelInt16;
  std::atomic<double> m_targetFrameRate = 30.0;
  std::uint32_t m_frameCounter = 0;
  double m_deviceTimestamp = 0.0; ///< ms; of the worker alone
  Eigen::Vector3d m_phantomOrigin{0.0, 10.0, 0.0};
  Eigen::Vector3d m_interEventPhantomMotion = Eigen::Vector3d::Zero();
  std::atomic<PhantomType> m_phantomType = PhantomType::Point;
  std::vector<Eigen::Vector3d> m_scatterers;
  AcquisitionSequence m_acquisitionSequence;
  std::atomic<int> m_numFrameAcquisitions = 0;
  ChannelDataLayout m_channelDataLayout;
  std::atomic<double> m_echoAmplitude = 10.0;
  std::atomic<double> m_transmitAmplitude = 50.0;
  std::atomic<double> m_noiseAmplitude = 0.5;
  bool m_dirty = true;
  bool m_canBeSimulated = false; ///< by the last update of the waveforms
  std::vector<Frame> m_frames;
};

} // namespace Kelvaris::US
