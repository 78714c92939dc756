#pragma once

#include "reference/DelayAndSum.h"

#include <numeric>
#include <random>

namespace Kelvaris::Tests {

enum class ArrayShape { Linear, Convex };
enum class Wave : int { Focused = 0, Plane = 1, Diverging = 2 };

struct SceneOptions {
  ArrayShape shape = ArrayShape::Linear;
  Wave wave = Wave::Plane;
  int numElements = 32;
  int numEvents = 3;
  int numSamples = 700;
  int width = 21;
  int height = 37;
  unsigned seed = 1;
};

/// Elements on a line through the origin, tilted against the x axis.
inline std::vector<CUDA::float3> linearElements(int n, double pitch, double tilt = 0) {
  std::vector<CUDA::float3> elements;
  for (int i = 0; i < n; ++i) {
    const double along = (i - (n - 1) * 0.5) * pitch;
    elements.push_back({static_cast<float>(along * std::cos(tilt)), static_cast<float>(along * std::sin(tilt)), 0});
  }
  return elements;
}

/// On an arc that touches the x axis in the origin.
inline std::vector<CUDA::float3> convexElements(int n, double pitch, double radius) {
  std::vector<CUDA::float3> elements;
  for (int i = 0; i < n; ++i) {
    const double angle = (i - (n - 1) * 0.5) * pitch / radius;
    elements.push_back(
        {static_cast<float>(radius * std::sin(angle)), static_cast<float>(radius * std::cos(angle) - radius), 0});
  }
  return elements;
}

/// A scene in mm, s and Hz: elements of pitch 0.3, for a convex array on a radius of 20, a fan of events, channels in
/// shuffled order, smooth signals of amplitude about 1000, pixels on a jittered grid down to 20 mm, of which some are
/// NaN in some events. Receive apertures differ from event to event.
inline BeamformingScene makeScene(const SceneOptions& o) {
  std::mt19937 random(o.seed);
  const auto uniform = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  BeamformingScene scene;
  scene.elements =
      o.shape == ArrayShape::Linear ? linearElements(o.numElements, 0.3) : convexElements(o.numElements, 0.3, 20);
  scene.numChannels = o.numElements + 3;
  scene.numSamples = o.numSamples;

  for (int i = 0; i < o.numEvents; ++i) {
    const double angle = (i - (o.numEvents - 1) * 0.5) * 0.15;
    const auto direction = CUDA::float3{static_cast<float>(std::sin(angle)), static_cast<float>(std::cos(angle)), 0};
    US::GPU::EventInfo e{};
    e.speedOfSound = 1.54e6f;
    e.pulseFrequency = 2.5e6f;
    e.eventType = static_cast<int>(o.wave);
    e.timeZeroPoint = scene.elements[angle > 0 ? 0 : scene.elements.size() - 1];
    e.waveFiducial = o.wave == Wave::Focused     ? CUDA::float3{static_cast<float>(i) - 1.0f, 11.0f, 0}
                     : o.wave == Wave::Diverging ? CUDA::float3{static_cast<float>(i) - 1.0f, -7.0f, 0}
                                                 : direction;
    e.waveStart = {static_cast<float>(i) - 1.0f, 0, 0};
    // The whole array, then parts of it.
    e.apertureFirst = i % 3 == 1 ? o.numElements / 4 : 0;
    e.apertureLast = i % 3 == 2 ? o.numElements * 3 / 4 : o.numElements - 1;
    e.samplingFrequency = 20e6f;
    e.startTime = static_cast<float>(0.4e-6 * i);
    scene.events.push_back(e);

    std::vector<int> channels(static_cast<std::size_t>(scene.numChannels));
    std::iota(channels.begin(), channels.end(), 0);
    std::shuffle(channels.begin(), channels.end(), random);
    for (int element = 0; element < o.numElements; ++element)
      scene.elementToChannel.push_back(
          element < e.apertureFirst || element > e.apertureLast ? -1 : channels[static_cast<std::size_t>(element)]);
  }

  scene.samples.resize(static_cast<std::size_t>(scene.numChannels) * static_cast<std::size_t>(o.numSamples) *
                       static_cast<std::size_t>(o.numEvents));
  for (int event = 0; event < o.numEvents; ++event)
    for (int channel = 0; channel < scene.numChannels; ++channel) {
      const double f1 = uniform(0.01, 0.05), f2 = uniform(0.05, 0.1), a = uniform(0, 6), b = uniform(0, 6);
      for (int k = 0; k < o.numSamples; ++k) {
        const double p = 2 * std::numbers::pi * k;
        scene.sample(channel, k, event) = {static_cast<float>(700 * std::cos(f1 * p + a) + 300 * std::cos(f2 * p + b)),
                                           static_cast<float>(700 * std::sin(f1 * p + a) - 300 * std::sin(f2 * p + b))};
      }
    }

  scene.width = o.width;
  scene.height = o.height;
  scene.positionSlices = o.numEvents;
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  const double halfWidth = o.numElements * 0.5 * 0.3 * 1.2;
  for (int slice = 0; slice < scene.positionSlices; ++slice)
    for (int y = 0; y < o.height; ++y)
      for (int x = 0; x < o.width; ++x) {
        const bool covered = (x + 2 * slice) % 7 != 0 || y % 3 != 0;
        const double px = halfWidth * (2 * (x + uniform(0.2, 0.8)) / o.width - 1);
        const double py = 20 * (y + uniform(0.2, 0.8)) / o.height - 0.5;
        scene.positions.push_back(covered ? CUDA::float2{static_cast<float>(px), static_cast<float>(py)}
                                          : CUDA::float2{nan, nan});
      }
  return scene;
}

} // namespace Kelvaris::Tests
