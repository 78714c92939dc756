// The simulated stream at its default rate: what one emission of 64 channels x 2000 samples x 16 events takes, whole
// and by part, and what a change of the phantom takes. `of a period` is the time as a fraction of the 33.3 ms between
// two emissions: below 1, the stream keeps its rate. Bytes are those of samples written (and of the layer read).

#include "Ceilings.h"

#include "CUDA/Device.h"
#include "Core/Resource.h"
#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/Program.h"
#include "GL/ShaderStorageBuffer.h"
#include "imagemath/ImageMath.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"
#include "simulation/PulseLocations.h"
#include "simulation/SimulatedChannelDataStream.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <numbers>
#include <string>

namespace Kelvaris::US {
namespace {

constexpr int elements = 64, samples = 2000, planeWaves = 16;
constexpr double period = 1.0 / 30.0;

FrameAcquisition acquisition() {
  FrameParameters p;
  p.eventType = static_cast<int>(PulseEchoEvent::EventType::PlaneWave);
  p.endDepth = 40.0;
  p.pulseFrequency = 5e6;
  p.pulseLength = 2.0;
  p.speedOfSound = 1.54e6;
  p.maxTransmitAperture = p.maxReceiveAperture = elements;
  p.receiveSamplingFrequency = 31.25e6;
  p.planeWave = {0.05 * std::numbers::pi, 1, planeWaves};
  FrameAcquisition frame(Transducer::createLinear(elements, 0.3), p);
  for (PulseEchoEvent& event : frame.events())
    event.receive.endTime = (samples + 0.5) / event.receive.samplingFrequency;
  return frame;
}

void count(benchmark::State& state, std::size_t bytesPerRound = 0) {
  state.counters["of a period"] = benchmark::Counter(static_cast<double>(state.iterations()) * period,
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  if (bytesPerRound != 0) state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytesPerRound));
}

void emission(benchmark::State& state, PixelType type, PhantomType phantom, bool changes) {
  const GL::ContextManager::ActivationGuard guard; // as the worker thread has it
  SimulatedChannelDataStream stream;
  stream.setUseSIMUS(false);
  stream.setPixelType(type);
  stream.setPhantomType(phantom);
  stream.setAcquisitionSequence(AcquisitionSequence({acquisition()}));
  stream.getNextAcquisition();
  for ([[maybe_unused]] auto _ : state) {
    if (changes) stream.setPhantomOrigin(stream.phantomOrigin());
    benchmark::DoNotOptimize(stream.getNextAcquisition());
  }
  count(state);
}

std::shared_ptr<MemImage> zeros(int type) {
  std::shared_ptr<MemImage> image = MemImage::create(ImageDescriptor(type, elements, samples, planeWaves));
  std::memset(image->data(), 0, image->byteSize());
  return image;
}

/// Noise, or the sum with a layer, evaluated by a shader (strategy 2) or on the processor (0); read back.
void noise(benchmark::State& state, PixelType type, int strategy) {
  const GL::ContextManager::ActivationGuard guard;
  const ImageDescriptor size = zeros(type)->descriptor();
  int frame = 0;
  for ([[maybe_unused]] auto _ : state) {
    SharedImage image(size);
    ImageMath::Array<SharedImage> target(image);
    target = DeviceStrategyWrapper(ImageMath::makeNoise(image, ImageMath::NoiseType::Gaussian, 0.0f, 0.5f, ++frame),
                                   strategy);
    benchmark::DoNotOptimize(image.mem());
  }
  count(state, size.byteSize());
}

void layer(benchmark::State& state, PixelType type, int strategy) {
  const GL::ContextManager::ActivationGuard guard;
  const SharedImage pulses(std::make_shared<GlImage>(*zeros(PixelFloat)));
  SharedImage image(zeros(type));
  if (strategy != 0) image.assign(std::make_shared<GlImage>(*image.mem()));
  for ([[maybe_unused]] auto _ : state) {
    ImageMath::Array<SharedImage> target(image);
    target = DeviceStrategyWrapper(target + ImageMath::Array<const SharedImage, float>(pulses), strategy);
  }
  count(state, 2 * image.descriptor().byteSize() + pulses.descriptor().byteSize());
}

void copying(benchmark::State& state, PixelType type) {
  const SharedImage image(zeros(type));
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(image.clone(1));
  count(state, 2 * image.descriptor().byteSize());
}

void locationTable(benchmark::State& state) {
  const FrameAcquisition frame = acquisition();
  const FrameSizes sizes(frame);
  const auto scatterers = phantomScatterers(PhantomType::Grid5mm, {0.0, 10.0, 0.0});
  const std::vector<Eigen::Vector3d> offsets(frame.events().size(), Eigen::Vector3d::Zero());
  std::size_t bytes = 0;
  for ([[maybe_unused]] auto _ : state) {
    const auto table = echoPulseLocations(frame, sizes, scatterers, offsets);
    bytes = table.size() * sizeof(table[0]);
  }
  count(state, bytes);
}

void overlay(benchmark::State& state) {
  const GL::ContextManager::ActivationGuard guard;
  const FrameAcquisition frame = acquisition();
  const FrameSizes sizes(frame);
  const auto scatterers = phantomScatterers(PhantomType::Grid5mm, {0.0, 10.0, 0.0});
  const std::vector<Eigen::Vector3d> offsets(frame.events().size(), Eigen::Vector3d::Zero());
  const GL::ShaderStorageBuffer locations(echoPulseLocations(frame, sizes, scatterers, offsets));
  const GlImage pulse(TypedImage<float>(sizes.pulseLength, 1));
  SharedImage pulses(std::make_shared<GlImage>(*zeros(PixelFloat)));
  PulseOverlay program;
  for ([[maybe_unused]] auto _ : state) {
    program.overlayPulses(pulses, pulse, locations, sizes.transmitElements * static_cast<int>(scatterers.size()),
                          sizes.channels, sizes.events);
    GL::finish();
  }
  count(state);
}

template <typename... Args> void add(const std::string& name, Args&&... args) {
  benchmark::RegisterBenchmark(name.c_str(), std::forward<Args>(args)...)
      ->MeasureProcessCPUTime()
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

} // namespace
} // namespace Kelvaris::US

int main(int argc, char** argv) {
  using namespace Kelvaris;
  using namespace Kelvaris::US;
  benchmark::Initialize(&argc, argv);
  if (!GL::ContextManager::get().isAvailable()) {
    benchmark::AddCustomContext("skipped", GL::ContextManager::get().unavailableReason());
  } else {
    const bool isSoftware = GL::ContextManager::get().isSoftware();
    benchmark::AddCustomContext("OpenGL", isSoftware ? "on the processor" : "on a graphics card");
    const Repository_KelvarisUSImgFormationPlugin repository;
    Resource::addRepository(&repository);
    for (const PixelType type : {PixelInt16, PixelFloat}) {
      const std::string name = type == PixelInt16 ? ", int16" : ", float";
      add("Emission, point" + name, emission, type, PhantomType::Point, false);
      add("Emission, 5 mm grid" + name, emission, type, PhantomType::Grid5mm, false);
      add("  noise, shader, read back" + name, noise, type, 2);
      add("  noise, processor" + name, noise, type, 0);
      add("  sum with a layer, shader" + name, layer, type, 2);
      add("  sum with a layer, processor" + name, layer, type, 0);
      add("  clone" + name, copying, type);
    }
    add("Emission after a change, point", emission, PixelInt16, PhantomType::Point, true);
    add("Emission after a change, 5 mm grid", emission, PixelInt16, PhantomType::Grid5mm, true);
    add("  location table of the grid", locationTable);
    add("  pulses of the grid by the shader", overlay);
    Bench::registerCeilings();
    benchmark::RunSpecifiedBenchmarks();
  }
  return 0;
}
