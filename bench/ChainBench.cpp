// From raw channel data to display levels: IQ demodulation, beamforming and log compression, frame after frame with
// the caches warm. `frames` is frames per second; bytes are those of channel data read and levels written.

#include "Ceilings.h"

#include "CUDA/Device.h"
#include "Core/Resource.h"
#include "beamforming/BeamformingAlgorithm.h"
#include "imaging/LogCompressionAlgorithm.h"
#include "model/FrameAcquisition.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"
#include "processing/IqDemodulationAlgorithm.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <numbers>
#include <random>
#include <string>

namespace Kelvaris::US {
namespace {

struct Setup {
  const char* name;
  int pixels; ///< along each side
  int elements;
  int planeWaves;
};
constexpr Setup setups[] = {{"251 x 251 pixels, 128 elements, 1 plane wave", 251, 128, 1},
                            {"512 x 512 pixels, 64 elements, 16 plane waves", 512, 64, 16}};
constexpr int samples = 2048;

FrameAcquisition acquisitionOf(const Setup& setup) {
  FrameParameters p;
  p.eventType = static_cast<int>(PulseEchoEvent::EventType::PlaneWave);
  p.endDepth = 40.0;
  p.pulseFrequency = 5e6;
  p.pulseLength = 2.0;
  p.speedOfSound = 1.54e6;
  p.maxTransmitAperture = p.maxReceiveAperture = setup.elements;
  p.receiveSamplingFrequency = 31.25e6;
  p.planeWave = {setup.planeWaves == 1 ? 0.0 : 0.05 * std::numbers::pi, 1, setup.planeWaves};
  return {Transducer::createLinear(setup.elements, 0.3), p};
}

void chain(benchmark::State& state, const Setup& setup) {
  auto noise = std::make_shared<TypedImage<float>>(setup.elements, samples, setup.planeWaves);
  std::mt19937 random(1);
  std::normal_distribution<float> normal(0.0f, 1000.0f);
  for (std::size_t i = 0; i < noise->size(); ++i)
    (*noise)[i] = normal(random);
  DataComponentList components;
  components.add<FrameAcquisition>(acquisitionOf(setup));

  const IqDemodulationAlgorithm demodulation(nullptr);
  BeamformingAlgorithm beamforming(nullptr);
  Properties settings;
  settings.setParam("outputSize", Eigen::Vector2i(setup.pixels, setup.pixels));
  beamforming.configure(&settings);
  const LogCompressionAlgorithm logCompression(nullptr);

  const auto frame = [&] {
    const SharedImage data(noise); // a new frame: nothing of it is on the device yet
    const auto [iq, iqComponents] = demodulation.processImage(data, components);
    const auto [image, imageComponents] = beamforming.processImage(*iq, iqComponents);
    return logCompression.processImage(*image, imageComponents).first->mem();
  };
  const std::size_t bytes = noise->byteSize() + frame()->byteSize();
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(frame());
  state.counters["frames"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

} // namespace
} // namespace Kelvaris::US

int main(int argc, char** argv) {
  using namespace Kelvaris;
  benchmark::Initialize(&argc, argv);
  benchmark::AddCustomContext("executor", CUDA::Device::current().name());
  const Repository_KelvarisUSImgFormationPlugin repository;
  Resource::addRepository(&repository);
  for (const US::Setup& setup : US::setups)
    benchmark::RegisterBenchmark(setup.name, US::chain, setup)
        ->MeasureProcessCPUTime()
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  Bench::registerCeilings();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
