// Delay-and-sum beamforming, from device buffer to device buffer, per executor. README.md tells the unit
// (`evaluations`) and the data. Bytes are those of channel data, positions and output, each counted once.

#include "Ceilings.h"

#include "CUDA/Device.h"
#include "CUDA/DeviceBufferPool.h"
#include "US/FrameGeometryLinear.h"
#include "gpu/Beamforming.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <string>
#include <type_traits>

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
constexpr double pitch = 0.3, depth = 40.0, samplingFrequency = 31.25e6;

FrameAcquisition acquisitionOf(const Setup& setup) {
  const auto transducer = Transducer::createLinear(setup.elements, pitch);
  std::vector<PulseEchoEvent> events;
  for (int i = 0; i < setup.planeWaves; ++i) {
    const double angle = setup.planeWaves == 1 ? 0.0 : -0.2 + 0.4 * i / (setup.planeWaves - 1);
    auto event =
        PulseEchoEvent::createPlaneWave(transducer, Eigen::Vector3d::Zero(), angle, setup.elements, setup.elements);
    event.transmit.speedOfSound = 1.54e6;
    event.transmit.pulseFrequency = 5e6;
    event.receive.samplingFrequency = samplingFrequency;
    events.push_back(event);
  }
  return {transducer, events};
}

template <typename T> SharedImage noise(const Eigen::Vector3i& dimensions, int channels) {
  auto image = std::make_shared<TypedImage<T>>(dimensions.x(), dimensions.y(), dimensions.z(), channels);
  std::mt19937 random(1);
  std::normal_distribution<double> normal(0.0, 1000.0);
  for (std::size_t i = 0; i < image->size(); ++i)
    (*image)[i] = static_cast<T>(normal(random));
  return SharedImage(image);
}

/// As wide as the array and `depth` deep.
SharedImage positionsOf(const Setup& setup) {
  auto image = std::make_shared<TypedImage<float>>(setup.pixels, setup.pixels, 1, 2);
  const double width = pitch * (setup.elements - 1);
  for (int y = 0; y < setup.pixels; ++y)
    for (int x = 0; x < setup.pixels; ++x) {
      image->setValue(static_cast<float>(width * ((x + 0.5) / setup.pixels - 0.5)), x, y, 0, 0);
      image->setValue(static_cast<float>(depth * (y + 0.5) / setup.pixels), x, y, 0, 1);
    }
  return SharedImage(image);
}

template <typename T>
void beamform(benchmark::State& state, const Setup& setup, int channels, const ChannelDataLayout& layout) {
  const CUDA::DeviceBufferPool::ActivationGuard pool;
  const FrameAcquisition acquisition = acquisitionOf(setup);
  const GPU::Beamforming beamforming(acquisition);
  const SharedImage data = noise<T>(layout.packVec(setup.elements, samples, setup.planeWaves), channels);
  const SharedImage positions = positionsOf(setup);
  FrameGeometryLinear geometry;
  geometry.setImgDescPrescan(ImageDescriptor(pixelTypeOf<T>(), setup.pixels, setup.pixels, 1, channels));
  const auto run = [&](GPU::BeamformerType type) {
    return beamforming.beamform(data, layout, geometry, positions, 1.0, 1.0, type, true);
  };
  // The sum of the aperture sizes over all pixels and events is the number of evaluations.
  const auto sizes = run(GPU::BeamformerType::DebugApertureSize)->mem();
  double evaluations = 0;
  for (int y = 0; y < setup.pixels; ++y)
    for (int x = 0; x < setup.pixels; ++x)
      evaluations += sizes->valueAsDouble(x, y, 0, 0);

  for ([[maybe_unused]] auto _ : state) {
    const auto result = run(GPU::BeamformerType::UnweightedDas);
    if (CUDA::Device::isCuda()) result->mem(); // waits for the kernel; includes the download
    benchmark::DoNotOptimize(result);
  }
  const auto runs = static_cast<double>(state.iterations());
  state.counters["evaluations"] = benchmark::Counter(runs * evaluations, benchmark::Counter::kIsRate);
  state.SetBytesProcessed(
      static_cast<std::int64_t>(runs) *
      static_cast<std::int64_t>(data.descriptor().byteSize() + positions.descriptor().byteSize() + sizes->byteSize()));
}

template <typename T> void registerRows() {
  using Axis = ChannelDataLayout::Axis;
  const std::string type = std::is_same_v<T, float> ? "float" : "short";
  for (const Setup& setup : setups)
    for (const int channels : {1, 2})
      for (const bool samplesFirst : {false, true})
        benchmark::RegisterBenchmark(
            ((channels == 1 ? "RF " : "IQ ") + type + ", " + setup.name + (samplesFirst ? ", samples first" : ""))
                .c_str(),
            beamform<T>, setup, channels,
            samplesFirst ? ChannelDataLayout(Axis::FastTime, Axis::Channels, Axis::SlowTime) : ChannelDataLayout())
            ->MeasureProcessCPUTime()
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
}

} // namespace
} // namespace Kelvaris::US

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::AddCustomContext("executor", Kelvaris::CUDA::Device::current().name());
  Kelvaris::US::registerRows<float>();
  Kelvaris::US::registerRows<short>();
  Kelvaris::Bench::registerCeilings();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
