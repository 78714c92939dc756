#include "processing/SignalProcessing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace Kelvaris::US::Signal {
namespace {

constexpr double pi = 3.141592653589793;
constexpr double twoPi = 6.283185307179586;

/// Sets element i to `response(t)`, t = i - (N - 1) / 2, and the middle one to `centre`.
template <typename Response> void fill(TypedImage<float>& image, double centre, Response&& response) {
  const std::size_t count = image.size();
  if (count < 1) return;
  const std::size_t last = count - 1;
  for (std::size_t i = 0; i < count; ++i) {
    const double t = static_cast<double>(i) - static_cast<double>(last) / 2.0;
    image[i] = static_cast<float>(i == last / 2 ? centre : response(t));
  }
}

TypedImage<float> signalAlong(int axis, int length, int channels, const Eigen::Vector3d& spacing) {
  if (axis < 0 || axis > 2)
    throw std::invalid_argument(fmt::format("A signal lies along axis 0, 1 or 2, not {}", axis));
  Eigen::Vector3i dimensions = Eigen::Vector3i::Ones();
  dimensions[axis] = std::max(length, 0);
  TypedImage<float> signal(dimensions.x(), dimensions.y(), dimensions.z(), channels);
  signal.setSpacing(spacing);
  return signal;
}

/// Calls `store(i, x)` with the phase x of every sample i.
template <typename Store>
void forEachPhase(float samplingFrequency, float frequency, int length, float phase, Store&& store) {
  const float angular = (frequency + frequency) * 3.1415927f;
  for (int i = 0; i < length; ++i) {
    const float x = static_cast<float>(i) / samplingFrequency * angular + phase;
    store(static_cast<std::size_t>(i), static_cast<double>(x));
  }
}

} // namespace

void idealLowpass(double cutoff, TypedImage<float>& image) {
  fill(image, 2.0 * cutoff, [=](double t) { return std::sin(2.0 * t * pi * cutoff) / (t * pi); });
}

void idealHighpass(double cutoff, TypedImage<float>& image) {
  fill(image, 1.0 - 2.0 * cutoff, [=](double t) { return -std::sin(2.0 * t * pi * cutoff) / (t * pi); });
}

void idealBandpass(double lower, double upper, TypedImage<float>& image) {
  fill(image, 2.0 * upper - 2.0 * lower,
       [=](double t) { return (std::sin(2.0 * t * pi * upper) - std::sin(2.0 * t * pi * lower)) / (t * pi); });
}

void applyHammingWindow(TypedImage<float>& image) {
  const auto count = static_cast<long long>(image.size());
  if (count < 1) return;
  const long long n = (count - 1) / 2;
  for (long long j = -n; j <= n; ++j) {
    float& element = image[static_cast<std::size_t>(j + n)];
    element =
        static_cast<float>(element * (0.54 + 0.46 * std::cos(twoPi * static_cast<double>(j) / static_cast<double>(n))));
  }
}

TypedImage<float> createFirFilter(FilterType type, float samplingFrequency, float lower, float upper, int length,
                                  int axis) {
  if (length % 2 == 0)
    throw std::invalid_argument(fmt::format("Even filter length is not supported. Given length: {}", length));
  Eigen::Vector3d spacing = Eigen::Vector3d::Ones();
  if (axis >= 0 && axis <= 2) spacing[axis] = 1.0 / samplingFrequency;
  TypedImage<float> filter = signalAlong(axis, length, 1, spacing);
  const float l = lower / samplingFrequency;
  const float u = upper / samplingFrequency;
  switch (type) {
  case FilterType::Lowpass:
    idealLowpass(u, filter);
    break;
  case FilterType::Highpass:
    idealHighpass(l, filter);
    break;
  case FilterType::Bandpass:
    idealBandpass(l, u, filter);
    break;
  }
  applyHammingWindow(filter);
  return filter;
}

TypedImage<float> sinusoidReal(float samplingFrequency, float frequency, int length, float amplitude, float phase,
                               int axis) {
  TypedImage<float> signal = signalAlong(axis, length, 1, {1.0 / samplingFrequency, 1.0, 1.0});
  forEachPhase(samplingFrequency, frequency, length, phase,
               [&](std::size_t i, double x) { signal[i] = static_cast<float>(amplitude * std::cos(x)); });
  return signal;
}

TypedImage<float> sinusoidComplex(float samplingFrequency, float frequency, int length, float amplitude, float phase,
                                  int axis) {
  TypedImage<float> signal = signalAlong(axis, length, 2, {1.0 / samplingFrequency, 1.0, 1.0});
  forEachPhase(samplingFrequency, frequency, length, phase, [&](std::size_t i, double x) {
    signal[2 * i] = static_cast<float>(amplitude * std::cos(x));
    signal[2 * i + 1] = static_cast<float>(amplitude * std::sin(x));
  });
  return signal;
}

} // namespace Kelvaris::US::Signal
