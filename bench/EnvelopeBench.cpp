// Envelope detection of an image of 512 columns and 1024 rows of real samples, from main memory to display levels in
// main memory, in pixels of the input per second. "First frame" makes the demodulator anew for each image, with its
// filter and its shaders; a later frame costs one product, one convolution with 101 taps, one resampling, log
// compression, and the ways into the texture and out. "Convolution alone" goes from texture to texture and back to main
// memory; `taps` are terms of its sums per second (two components).

#include "GL/ContextManager.h"
#include "GL/GlConvolutionFilter.h"
#include "imaging/EnvelopeDetectionAlgorithm.h"
#include "processing/SignalProcessing.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <string>

namespace Kelvaris::US {
namespace {

constexpr int kWidth = 512, kHeight = 1024, kTaps = 101;

template <typename T> std::shared_ptr<MemImage> noise(int channels) {
  auto image = std::make_shared<TypedImage<T>>(kWidth, kHeight, 1, channels);
  std::mt19937 random(1);
  std::normal_distribution<double> normal(0.0, 1000.0);
  std::generate_n(image->pointer(), image->size(), [&] { return static_cast<T>(normal(random)); });
  return image;
}

void countPixels(benchmark::State& state) {
  state.counters["pixels"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * kWidth * kHeight, benchmark::Counter::kIsRate);
}

template <typename T, int factor, bool isFirst = false> void envelope(benchmark::State& state) {
  const SharedImage image(noise<T>(1));
  Properties settings;
  settings.setParam("samplingFrequency", 30.8);
  settings.setParam("demodulationFrequency", 5.0);
  settings.setParam("decimationFactor", factor);
  settings.setParam("referenceAmplitude", 4000.0);
  auto algorithm = std::make_unique<EnvelopeDetectionAlgorithm>(nullptr);
  algorithm->configure(&settings);
  algorithm->processImage(image, {});
  for ([[maybe_unused]] auto _ : state) {
    if (isFirst) {
      algorithm = std::make_unique<EnvelopeDetectionAlgorithm>(nullptr);
      algorithm->configure(&settings);
    }
    benchmark::DoNotOptimize(algorithm->processImage(image, {}).first->mem());
  }
  countPixels(state);
}
void convolution(benchmark::State& state) {
  const GL::ContextManager::ActivationGuard guard;
  const GlImage input(*noise<float>(2));
  GlImage output(input.descriptor());
  GlConvolutionFilter filter(nullptr, GlConvolutionFilter::ZeroBorder);
  filter.setKernel(Signal::createFirFilter(Signal::FilterType::Lowpass, 30.8f, 0.0f, 5.0f, kTaps, 1));
  filter.apply(input, output);
  for ([[maybe_unused]] auto _ : state) {
    filter.apply(input, output);
    benchmark::DoNotOptimize(output.download());
  }
  countPixels(state);
  state.counters["taps"] = benchmark::Counter(static_cast<double>(state.iterations()) * kWidth * kHeight * 2 * kTaps,
                                              benchmark::Counter::kIsRate);
}
BENCHMARK(envelope<float, 1, true>)->Name("float, first frame")->UseRealTime();
BENCHMARK(envelope<float, 1>)->Name("float")->UseRealTime();
BENCHMARK(envelope<float, 4>)->Name("float, factor 4")->UseRealTime();
BENCHMARK(envelope<short, 1>)->Name("short")->UseRealTime();
BENCHMARK(convolution)->Name("Convolution alone")->UseRealTime();

} // namespace
} // namespace Kelvaris::US

int main(int argc, char** argv) {
  auto& contexts = Kelvaris::GL::ContextManager::get();
  if (!contexts.isAvailable()) {
    std::fprintf(stderr, "%s\n", contexts.unavailableReason().c_str());
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::AddCustomContext("OpenGL", contexts.isSoftware() ? "software" : "hardware");
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
