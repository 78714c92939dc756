#pragma once

#include "CUDA/VectorTypes.h"
#include "gpu/BeamformerType.h"
#include "gpu/EventInfo.h"
#include "gpu/Workmode.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <tuple>
#include <vector>

namespace Kelvaris::Tests {

using US::GPU::BeamformerType, US::GPU::EventInfo, US::GPU::Workmode;

/// Everything that delay-and-sum beamforming needs, in plain main memory.
struct BeamformingScene {
  std::vector<CUDA::float3> elements;
  float pitch = 0.3f;
  std::vector<EventInfo> events;
  std::vector<int> elementToChannel; ///< elements x events
  int numChannels = 0;
  int numSamples = 0;
  bool isComplex = false;
  std::vector<std::complex<float>>
      samples;                      ///< channels x samples x events, channels fastest; real data have imaginary part 0
  std::array<int, 3> axes{0, 1, 2}; ///< image axis of channels, fast time, slow time in the kernel's input
  int width = 0, height = 0, slices = 1; ///< of the output
  std::vector<CUDA::float2> positions;   ///< width x height x positionSlices
  int positionSlices = 1;
  float fNumber = 1;
  float scaling = 1;
  BeamformerType type = BeamformerType::UnweightedDas;
  Workmode workmode = Workmode::CoherentCompound;

  std::complex<float>& sample(int channel, int sample, int event) {
    return samples[static_cast<std::size_t>((event * numSamples + sample) * numChannels + channel)];
  }
  const std::complex<float>& sample(int channel, int sample, int event) const {
    return const_cast<BeamformingScene*>(this)->sample(channel, sample, event);
  }
};

struct BeamformedPixel {
  std::complex<double> value; ///< scaled; NaN where there is no data
  bool isValid = false;
  bool isWritten = false; ///< false for columns and slices without an event
  /// A decision (nearest element, width of the aperture, sample in the recording) lies within the rounding of single
  /// precision of falling the other way.
  bool isDoubtful = false;
};

template <typename Real> struct Vector {
  Real x, y, z;
  Vector(Real x_, Real y_, Real z_) : x(x_), y(y_), z(z_) {}
  explicit Vector(CUDA::float3 v) : x(v.x), y(v.y), z(v.z) {}
  Vector operator-(const Vector& o) const { return {x - o.x, y - o.y, z - o.z}; }
  Real dot(const Vector& o) const { return x * o.x + y * o.y + z * o.z; }
  Real norm() const { return std::sqrt(dot(*this)); }
};

template <typename Real> class PixelSum {
public:
  PixelSum(const BeamformingScene& scene, int event, CUDA::float2 position)
      : m_scene(scene),
        m_event(event),
        m_info(scene.events[static_cast<std::size_t>(event)]),
        m_p(position.x, position.y, 0) {}

  std::complex<Real> compute() {
    const int first = m_info.apertureFirst, last = m_info.apertureLast;
    constexpr Real nan = std::numeric_limits<Real>::quiet_NaN();
    const std::complex<Real> none(nan, nan);
    if (last < first) return none;
    const int center = nearest(first, last);
    const int half = halfWidth(center);
    const long a0 = std::max<long>(static_cast<long>(center) - half, first);
    const long a1 = std::min<long>(static_cast<long>(center) + half, last);
    if (a1 < a0) return none;
    const auto n = static_cast<Real>(a1 - a0 + 1);

    if (m_scene.type == BeamformerType::DebugApertureSize) return {n, n};
    if (m_scene.type == BeamformerType::DebugApertureStart) return {static_cast<Real>(a0), static_cast<Real>(a0)};
    if (m_scene.type == BeamformerType::DebugApertureEnd) return {static_cast<Real>(a1), static_cast<Real>(a1)};

    const Real transmit = transmitTime();
    Real re = 0, im = 0;
    int count = 0;
    for (long e = a0; e <= a1; ++e) {
      std::complex<Real> value;
      if (!elementValue(static_cast<int>(e), transmit, value)) continue;
      const Real w = weight(static_cast<Real>(e - a0), n);
      re = std::fma(value.real(), w, re);
      im = std::fma(value.imag(), w, im);
      ++count;
    }
    return count == 0 ? none : std::complex<Real>(re, im);
  }

  bool isDoubtful() const { return m_doubtful; }

private:
  static constexpr bool isReference = std::is_same_v<Real, double>;
  static constexpr double rounding = 2e-6; ///< a few operations in single precision, relative

  Vector<Real> element(int i) const { return Vector<Real>(m_scene.elements[static_cast<std::size_t>(i)]); }

  int nearest(int first, int last) {
    int center = first;
    Real best = std::numeric_limits<Real>::infinity(), second = best;
    for (int i = first + 1; i <= last; ++i) {
      const Real d = (m_p - element(i)).norm();
      if (d < best) {
        second = best;
        best = d;
        center = i;
      } else if (d < second) {
        second = d;
      }
    }
    if (isReference && second - best <= rounding * best) m_doubtful = true;
    return center;
  }

  int halfWidth(int center) {
    const Real dist = (m_p - element(center)).norm();
    const Real width = dist / static_cast<Real>(m_scene.fNumber) / static_cast<Real>(m_scene.pitch);
    if (std::isnan(width)) return 0;
    const Real rounded = std::round(width);
    if (isReference && std::abs(std::abs(width - std::trunc(width)) - 0.5) <= rounding * std::abs(width) + 1e-12)
      m_doubtful = true;
    if (rounded >= 0x1p31) return std::numeric_limits<int>::max() / 2;
    if (rounded < -0x1p31) return std::numeric_limits<int>::min() / 2;
    return static_cast<int>(rounded) / 2;
  }

  Real transmitTime() const {
    const Vector<Real> t(m_info.timeZeroPoint), f(m_info.waveFiducial), s(m_info.waveStart);
    const Real c = m_info.speedOfSound;
    switch (m_info.eventType) {
    case 0: {
      const Real a = (t - f).norm(), b = (m_p - f).norm();
      return ((m_p - f).dot(f - s) > 0 ? a + b : a - b) / c;
    }
    case 1:
      return (m_p - t).dot(f) / c;
    case 2:
      return ((m_p - f).norm() - (t - f).norm()) / c;
    default:
      return std::numeric_limits<Real>::quiet_NaN();
    }
  }

  /// False for NaN.
  bool elementValue(int e, Real transmit, std::complex<Real>& value) {
    const Real receive = (m_p - element(e)).norm() / static_cast<Real>(m_info.speedOfSound);
    const Real tau = (transmit + receive) - static_cast<Real>(m_info.startTime);
    const Real s = static_cast<Real>(m_info.samplingFrequency) * tau;
    const auto end = static_cast<Real>(static_cast<float>(m_scene.numSamples - 1));
    if (isReference && (std::abs(s) < 1e-3 || std::abs(s - end) < 1e-3)) m_doubtful = true;
    if (!(s >= 0) || s >= end) return false;
    const auto k = static_cast<int>(s);
    const int channel = m_scene.elementToChannel[static_cast<std::size_t>(m_event) * m_scene.elements.size() +
                                                 static_cast<std::size_t>(e)];
    const std::complex<Real> lower(m_scene.sample(channel, k, m_event)), upper(m_scene.sample(channel, k + 1, m_event));
    const Real alpha = s - static_cast<Real>(k);
    value = {(1 - alpha) * lower.real() + alpha * upper.real(), (1 - alpha) * lower.imag() + alpha * upper.imag()};
    if (m_scene.isComplex) {
      const Real phase = (static_cast<Real>(m_info.pulseFrequency) + static_cast<Real>(m_info.pulseFrequency)) *
                         std::numbers::pi_v<Real> * tau;
      // The library's product follows the annex on complex arithmetic.
      value = value * std::complex<Real>(std::cos(phase), std::sin(phase));
    }
    return !std::isnan(value.real()) && !std::isnan(value.imag());
  }

  Real weight(Real i, Real n) const {
    constexpr Real pi = std::numbers::pi_v<Real>;
    if (m_scene.type == BeamformerType::HammingDas) return Real(0.54f) + Real(-0.46f) * std::cos(2 * pi * i * (1 / n));
    if (m_scene.type != BeamformerType::TukeyDas) return 1;
    const Real taper = n * Real(0.5) * Real(0.5);
    if (i < taper) return (1 - std::cos(pi * i / taper)) * Real(0.5);
    if (i <= n - taper) return 1;
    return (1 - std::cos(pi * (n - i) / taper)) * Real(0.5);
  }

  const BeamformingScene& m_scene;
  int m_event;
  EventInfo m_info;
  Vector<Real> m_p;
  bool m_doubtful = false;
};

template <typename Real> BeamformedPixel beamformPixel(const BeamformingScene& scene, int x, int y, int z) {
  const auto numEvents = static_cast<int>(scene.events.size());
  const auto result = [&](int event) {
    const int slice = scene.positionSlices == 1 ? 0 : event;
    PixelSum<Real> sum(scene, event,
                       scene.positions[static_cast<std::size_t>((slice * scene.height + y) * scene.width + x)]);
    const std::complex<Real> value = sum.compute();
    return std::pair(value, sum.isDoubtful());
  };
  const auto isValid = [](const std::complex<Real>& v) { return !std::isnan(v.real()) && !std::isnan(v.imag()); };

  BeamformedPixel pixel;
  std::complex<Real> value;
  if (scene.workmode == Workmode::CoherentCompound) {
    int count = 0;
    for (int event = 0; event < numEvents; ++event) {
      const auto [v, doubtful] = result(event);
      pixel.isDoubtful |= doubtful;
      if (!isValid(v)) continue;
      value = {value.real() + v.real(), value.imag() + v.imag()};
      ++count;
    }
    pixel.isValid = count > 0;
  } else {
    const int event = scene.workmode == Workmode::PerLine ? x : z;
    if (event >= numEvents) return pixel;
    std::tie(value, pixel.isDoubtful) = result(event);
    pixel.isValid = isValid(value);
  }
  pixel.isWritten = true;
  const Real scaling = scene.scaling;
  pixel.value = {static_cast<double>(value.real() * scaling), static_cast<double>(value.imag() * scaling)};
  return pixel;
}

/// Delay and sum by the plain formula, pixel by pixel, in the precision Real and in the stated order of operations. In
/// double it is the reference for accuracy, in float for the bits of the apertures.
template <typename Real> std::vector<BeamformedPixel> delayAndSum(const BeamformingScene& scene) {
  std::vector<BeamformedPixel> pixels;
  for (int z = 0; z < scene.slices; ++z)
    for (int y = 0; y < scene.height; ++y)
      for (int x = 0; x < scene.width; ++x)
        pixels.push_back(beamformPixel<Real>(scene, x, y, z));
  return pixels;
}

} // namespace Kelvaris::Tests
