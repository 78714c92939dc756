#pragma once

#include "CUDA/CpuVariant.h"
#include "CUDA/Device.h"
#include "CUDA/DeviceBufferImage.h"
#include "CUDA/Utils.h"
#include "gpu/BeamformingLaunch.h"
#include "model/ChannelDataLayout.h"
#include "reference/DelayAndSum.h"

#include <cstring>
#include <functional>

namespace Kelvaris::Tests {

using CUDA::DeviceBufferImage;
using CUDA::DeviceVector;
using CUDA::float2;
using CUDA::short2;
using namespace US::GPU;

template <typename T> constexpr bool isComplex = std::is_same_v<T, short2> || std::is_same_v<T, float2>;
template <typename T> constexpr bool isShort = std::is_same_v<T, short2> || std::is_same_v<T, short>;

template <typename T> T toSampleType(std::complex<float> v) {
  using Component = std::conditional_t<isShort<T>, short, float>;
  if constexpr (isComplex<T>)
    return {static_cast<Component>(v.real()), static_cast<Component>(v.imag())};
  else
    return static_cast<T>(v.real());
}

template <typename T> ImageDescriptor descriptor(int width, int height, int slices) {
  return {isShort<T> ? PixelInt16 : PixelFloat, width, height, slices, isComplex<T> ? 2 : 1};
}

/// Rounds the samples to what T can hold.
template <typename T> void quantise(BeamformingScene& scene) {
  scene.isComplex = isComplex<T>;
  for (auto& v : scene.samples) {
    if (isShort<T>) v = {std::round(v.real()), std::round(v.imag())};
    if (!isComplex<T>) v = v.real();
  }
}

/// Runs the beamforming kernel on the scene's data, in the order of the scene's axes and on the current executor; on
/// the CPU with the given instruction set. Pixels that the kernel does not write hold 77 in each component.
template <typename T>
std::vector<T> runKernel(const BeamformingScene& scene, CUDA::CpuVariant variant,
                         const std::function<void(BeamformingArguments&)>& change = {}) {
  const auto numEvents = static_cast<int>(scene.events.size()), numElements = static_cast<int>(scene.elements.size());
  const auto standard = MemImage::create(descriptor<T>(scene.numChannels, scene.numSamples, numEvents));
  std::transform(scene.samples.data(), scene.samples.data() + standard->byteSize() / sizeof(T),
                 static_cast<T*>(standard->data()), toSampleType<T>);
  US::ChannelDataLayout::Axis semantics[3]{};
  for (const int axis : {0, 1, 2})
    semantics[scene.axes[static_cast<std::size_t>(axis)]] = static_cast<US::ChannelDataLayout::Axis>(axis);
  const auto channelData = US::permuteChannelData(*standard, {}, {semantics[0], semantics[1], semantics[2]});
  TypedImage<float> positions(scene.width, scene.height, scene.positionSlices, 2);
  std::memcpy(positions.data(), scene.positions.data(), positions.byteSize());
  TypedImage<int> table(numElements, numEvents);
  std::memcpy(table.data(), scene.elementToChannel.data(), table.byteSize());
  const auto output = MemImage::create(descriptor<T>(scene.width, scene.height, scene.slices));
  const std::size_t numPixels = output->byteSize() / sizeof(T);
  std::fill_n(static_cast<T*>(output->data()), numPixels, toSampleType<T>({77.0f, 77.0f}));

  const DeviceBufferImage deviceData(*channelData), devicePositions(positions), deviceTable(table),
      deviceOutput(*output);
  const DeviceVector<EventInfo> events{scene.events};
  const DeviceVector<CUDA::float3> elements{scene.elements};
  BeamformingArguments a;
  a.channelData = deviceData.kernelBuffer();
  a.samplePositions = devicePositions.kernelBuffer();
  a.output = deviceOutput.kernelBuffer();
  a.events = events.data();
  a.elementPositions = elements.data();
  a.numElements = numElements;
  a.elementToChannel = deviceTable.kernelBuffer();
  a.fNumber = scene.fNumber;
  a.outputValueScaling = scene.scaling;
  a.pitch = scene.pitch;
  a.beamformerType = scene.type;
  a.workmode = scene.workmode;
  a.channelsAxis = scene.axes[0];
  a.fastTimeAxis = scene.axes[1];
  a.slowTimeAxis = scene.axes[2];
  a.search = ElementSearch::fit(scene.elements);
  if (change) change(a);
  const CUDA::LaunchShape shape = CUDA::Utils::kernelBlocks(CUDA::Dim3{scene.width, scene.height, scene.slices});
#if KELVARIS_HAVE_CUDA
  if (CUDA::Device::isCuda())
    CUDA::Utils::printError(beamformOnCuda<T>(shape, a));
  else
#endif
    beamformOnCpu<T>(shape, a, variant);

  const auto result = deviceOutput.download();
  const T* pixels = static_cast<const T*>(result->data());
  return {pixels, pixels + numPixels};
}

/// Components as complex doubles; the invalid marker (NaN, -32768) becomes NaN.
template <typename T> std::complex<double> toComplex(T value) {
  const auto component = [](auto v) {
    return std::is_same_v<decltype(v), short> && v == -32768 ? std::numeric_limits<double>::quiet_NaN()
                                                             : static_cast<double>(v);
  };
  if constexpr (isComplex<T>)
    return {component(value.x), component(value.y)};
  else
    return {component(value), 0.0};
}

} // namespace Kelvaris::Tests
