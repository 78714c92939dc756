// Log compression, in bytes of input per second: one image, on one thread, and a volume, on all; in main memory and by
// a shader. The rows "Ceiling: copy" copy an input of the same size, the "Memory" row tells what is held on the way.

#include "GL/ContextManager.h"
#include "imaging/LogCompressionAlgorithm.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>

namespace Kelvaris::US {
namespace {

struct Shape {
  const char* name;
  int width, height, slices;
};
constexpr Shape kImage = {"image", 1024, 1024, 1}, kVolume = {"volume", 1024, 1024, 16};

template <typename T> std::unique_ptr<SharedImage> speckle(const Shape& shape, int channels) {
  auto image = std::make_shared<TypedImage<T>>(shape.width, shape.height, shape.slices, channels);
  std::mt19937 random(1);
  std::normal_distribution<float> normal(0.0f, 1000.0f);
  for (std::size_t i = 0; i < image->size(); ++i)
    (*image)[i] = static_cast<T>(normal(random));
  return std::make_unique<SharedImage>(image);
}

std::shared_ptr<SharedImage> compressed(const SharedImage& image, bool levels) {
  return LogCompressionAlgorithm::logCompression(image, {60.0, 4000.0, levels});
}

void countInput(benchmark::State& state, const SharedImage& image) {
  const auto runs = static_cast<std::int64_t>(state.iterations());
  const ImageDescriptor& d = image.descriptor();
  state.SetBytesProcessed(runs * static_cast<std::int64_t>(d.byteSize()));
  state.counters["pixels"] = benchmark::Counter(
      static_cast<double>(runs) * static_cast<double>(d.elementCount()) / d.channels(), benchmark::Counter::kIsRate);
}

template <typename T> void inMainMemory(benchmark::State& state, const Shape& shape, int channels, bool levels) {
  const auto image = speckle<T>(shape, channels);
  if (compressed(*image, levels)->hasForm(ImageForm::Gl)) {
    state.SkipWithError("this machine's OpenGL runs on hardware, so shaders evaluate");
    return;
  }
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(compressed(*image, levels));
  countInput(state, *image);
}

/// From texture to texture. The end of the outermost guard waits for the result.
template <typename T> void byShader(benchmark::State& state, const Shape& shape, int channels, bool levels) {
  if (!GL::ContextManager::get().isAvailable()) {
    state.SkipWithError(GL::ContextManager::get().unavailableReason().c_str());
    return;
  }
  const auto image = speckle<T>(shape, channels);
  const auto run = [&] {
    const GL::ContextManager::ActivationGuard guard;
    return compressed(*image, levels);
  };
  if (!run()->hasForm(ImageForm::Gl)) {
    state.SkipWithError("the shader can't be used; KELVARIS_LOG=1 says why");
    return;
  }
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(run());
  countInput(state, *image);
}

/// Into memory that is there already; a volume by all threads.
void copy(benchmark::State& state, const Shape& shape) {
  const auto image = speckle<float>(shape, 1);
  const auto source = image->mem();
  const std::size_t slice = source->byteSize() / static_cast<std::size_t>(shape.slices);
  const auto target = source->clone();
  for ([[maybe_unused]] auto _ : state) {
#pragma omp parallel for if (shape.slices > 1)
    for (std::size_t z = 0; z < static_cast<std::size_t>(shape.slices); ++z)
      std::memcpy(static_cast<char*>(target->data()) + z * slice, static_cast<const char*>(source->data()) + z * slice,
                  slice);
    benchmark::DoNotOptimize(target->data());
  }
  countInput(state, *image);
}

/// A line of /proc/self/status, in bytes.
double statusBytes(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;)
    if (double kilobytes = 0; word == key && status >> kilobytes) return kilobytes * 1024;
  return 0.0;
}

/// What the process holds at most while it computes, beyond what it held before, beside the size of the output: an
/// intermediate image of floats would be four times that.
void memoryHeld(benchmark::State& state) {
  const auto image = speckle<float>({"large volume", 1024, 1024, 64}, 1);
  double beyond = 0.0, output = 0.0;
  for ([[maybe_unused]] auto _ : state) {
    std::ofstream("/proc/self/clear_refs") << "5"; // the peak is now what is held now
    const double before = statusBytes("VmRSS:");
    const auto result = compressed(*image, true);
    beyond = statusBytes("VmHWM:") - before;
    output = static_cast<double>(result->descriptor().byteSize());
  }
  const auto bytes = [](double value) {
    return benchmark::Counter(value, benchmark::Counter::kDefaults, benchmark::Counter::kIs1024);
  };
  state.counters["peak"] = bytes(beyond);
  state.counters["output"] = bytes(output);
}

template <typename Function> void add(const std::string& name, const Function& function) {
  benchmark::RegisterBenchmark(name.c_str(), function)->UseRealTime()->Unit(benchmark::kMillisecond);
}

template <typename T> void addRows(const std::string& format, int channels, bool levels) {
  for (const Shape& shape : {kImage, kVolume}) {
    add("Main memory, " + std::string(shape.name) + ": " + format,
        [=](benchmark::State& state) { inMainMemory<T>(state, shape, channels, levels); });
    add("Shader, " + std::string(shape.name) + ": " + format,
        [=](benchmark::State& state) { byShader<T>(state, shape, channels, levels); });
  }
}

} // namespace
} // namespace Kelvaris::US

int main(int argc, char** argv) {
  using namespace Kelvaris::US;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  auto& contexts = Kelvaris::GL::ContextManager::get();
  benchmark::AddCustomContext("OpenGL", !contexts.isAvailable() ? contexts.unavailableReason()
                                        : contexts.isSoftware() ? "software"
                                                                : "hardware");
  addRows<float>("float to levels", 1, true);
  addRows<float>("float IQ to levels", 2, true);
  addRows<short>("short IQ to levels", 2, true);
  addRows<float>("float to decibels", 1, false);
  for (const Shape& shape : {kImage, kVolume})
    add("Ceiling: copy, " + std::string(shape.name), [=](benchmark::State& state) { copy(state, shape); });
  benchmark::RegisterBenchmark("Memory held: float to levels, 1024 x 1024 x 64", memoryHeld)
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
