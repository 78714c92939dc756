#include "gpu/IqDemodulation.h"

#include "gpu/BufferOf.h"
#include "gpu/IqDemodulationKernel.h"
#include "gpu/IqDemodulationLaunch.h"
#include "processing/SignalProcessing.h"
#include "support/DeviceTest.h"
#include "support/ErrorOf.h"
#include "support/Images.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <stdexcept>
#include <vector>

namespace Kelvaris::US::GPU {
namespace {

using Tests::bufferOf;

constexpr double pi = std::numbers::pi;

struct Case {
  int axis;
  int factor;
  Eigen::Vector3i dimensions;
  int taps = 101;
  double frequency = 5e6;
  double ratio = 1.0;
};
constexpr double samplingFrequency = 31.25e6;

// Odd sizes, lines shorter than the filter, fewer columns than lanes, one column, factors beyond the line's length.
const std::vector<Case> cases = {
    {0, 1, {211, 5, 3}},
    {0, 3, {211, 5, 3}},
    {0, 2, {5, 1, 1}, 3},
    {0, 4, {64, 7, 2}, 51, 4e6, 0.7},
    {0, 9, {1, 3, 2}},
    {1, 1, {33, 130, 2}},
    {1, 2, {37, 131, 3}},
    {1, 3, {128, 61, 1}, 51},
    {1, 4, {7, 203, 2}},
    {1, 2, {1, 5, 1}, 3},
    {1, 100, {40, 203, 2}},
    {1, 2147483647, {9, 3, 1}},
    {1, 2, {20, 99, 1}, 101, -1.6667e6},
    {2, 1, {19, 3, 70}},
    {2, 2, {70, 2, 55}},
    {2, 4, {3, 5, 99}, 25},
    {2, 70, {3, 1, 300}},
};

ImageDescriptor descriptorOf(int pixelType, const Eigen::Vector3i& dimensions, int channels = 1) {
  return {pixelType, dimensions.x(), dimensions.y(), dimensions.z(), channels};
}

/// Up to 20000, so that 16 bits are used.
std::shared_ptr<MemImage> loudNoise(const ImageDescriptor& descriptor) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> uniform(-20000.0, 20000.0);
  return Tests::imageOf(descriptor, [&](int, int, int, int) { return uniform(random); });
}

/// Mix, filter and decimate, term by term in double precision, with the system's filter and mixing signal.
class Reference {
public:
  Reference(const Case& c, const MemImage& input)
      : m_case(c),
        m_input(input),
        m_filter(Signal::createFirFilter(Signal::FilterType::Lowpass, float(samplingFrequency), 0.0f,
                                         static_cast<float>(c.frequency * c.ratio), c.taps, 0)),
        m_signal(Signal::sinusoidComplex(float(samplingFrequency), -static_cast<float>(c.frequency),
                                         c.dimensions[c.axis], 2.0f, 0.0f, 0)) {}

  std::complex<double> at(const Eigen::Vector3i& p) const {
    const long long c = p[m_case.axis], half = m_case.taps / 2, count = m_case.dimensions[m_case.axis];
    std::complex<double> sum = 0.0;
    // A sum reaches back by no more samples than its output has predecessors among the outputs.
    for (long long tap = 0; tap < m_case.taps; ++tap) {
      const long long k = tap - half, i = c * m_case.factor + k;
      if (k < -c || i >= count) continue;
      Eigen::Vector3i q = p;
      q[m_case.axis] = static_cast<int>(i);
      const auto s = static_cast<std::size_t>(i);
      sum += std::complex<double>(m_signal[2 * s], m_signal[2 * s + 1]) *
             m_input.valueAsDouble(q.x(), q.y(), q.z(), 0) * double(m_filter[static_cast<std::size_t>(tap)]);
    }
    return sum;
  }

private:
  Case m_case;
  const MemImage& m_input;
  TypedImage<float> m_filter, m_signal;
};

std::shared_ptr<SharedImage> demodulate(const Case& c, std::shared_ptr<MemImage> image) {
  return IqDemodulation().demodulate(SharedImage(std::move(image)), samplingFrequency, c.frequency, c.factor, c.axis,
                                     c.ratio, c.taps);
}

ImageDescriptor outputDescriptor(const Case& c, int pixelType) {
  Eigen::Vector3i dimensions = c.dimensions;
  dimensions[c.axis] = (dimensions[c.axis] - 1) / c.factor + 1;
  ImageDescriptor descriptor = descriptorOf(pixelType, dimensions, 2);
  Eigen::Vector3d spacing = Eigen::Vector3d::Ones();
  spacing[c.axis] = c.factor;
  descriptor.setSpacing(spacing);
  return descriptor;
}

class IqDemodulationCases : public Tests::DeviceTest<testing::TestWithParam<Case>> {};
using IqDemodulationTest = Tests::DeviceTest<>;

TEST_P(IqDemodulationCases, IsTheExplicitSum) {
  const Case c = GetParam();
  for (const int pixelType : {PixelFloat, PixelInt16}) {
    const auto input = loudNoise(descriptorOf(pixelType, c.dimensions));
    const auto result = demodulate(c, input)->mem();
    ASSERT_TRUE(result->descriptor().isApprox(outputDescriptor(c, pixelType))) << result->descriptor().toString();
    const Reference reference(c, *input);
    const double error = Tests::worstError(*result, [&](int x, int y, int z, int channel) {
      const std::complex<double> exact = reference.at({x, y, z});
      const double part = channel == 0 ? exact.real() : exact.imag();
      return pixelType == PixelFloat ? part : std::clamp(part, -32768.0, 32767.0);
    });
    EXPECT_LE(error, pixelType == PixelFloat ? 0.02 : 0.52); // a millionth, a rounding
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, IqDemodulationCases, testing::ValuesIn(cases));

template <typename T> void compareWithThreads(const Case& c, int inputChannels) {
  SCOPED_TRACE(testing::Message() << "axis " << c.axis << ", factor " << c.factor << ", " << c.dimensions.transpose());
  const int pixelType = std::is_same_v<T, float> ? PixelFloat : PixelInt16;
  const auto input = loudNoise(descriptorOf(pixelType, c.dimensions, inputChannels));
  auto filter = Signal::createFirFilter(Signal::FilterType::Lowpass, 4.0f, 0.0f, 1.0f, c.taps, 0);
  auto signal = Signal::sinusoidComplex(4.0f, -1.0f, c.dimensions[c.axis], 2.0f, 0.0f, 0);
  Tests::expectBitsOfThreads(
      outputDescriptor(c, pixelType),
      IqDemodulationArguments{
          bufferOf(*input), {}, bufferOf(signal), bufferOf(filter), std::min(c.factor, c.dimensions[c.axis])},
      [&](const auto& arguments, int x, int y, int z) {
        c.axis == 0   ? demodulationThread<T, 0>(arguments, x, y, z)
        : c.axis == 1 ? demodulationThread<T, 1>(arguments, x, y, z)
                      : demodulationThread<T, 2>(arguments, x, y, z);
      },
      [&](const auto& arguments, auto variant) { demodulateOnCpu<T>(arguments, c.axis, variant); });
}

TEST(IqDemodulationKernel, VectorUnitsGiveTheBitsOfSingleThreads) {
  for (const Case& c : cases) {
    compareWithThreads<float>(c, 1);
    compareWithThreads<short>(c, 1);
    compareWithThreads<short>(c, 2); // elements with a gap between them
  }
}

TEST_F(IqDemodulationTest, ToneBecomesItsComplexAmplitude) {
  constexpr double fs = 40e6, fd = 5e6, amplitude = 3.0, phase = 0.7;
  constexpr int n = 800;
  for (const double offset : {0.0, 0.6e6, -0.6e6})
    for (const int factor : {1, 4}) {
      auto line = std::make_shared<TypedImage<float>>(1, n);
      for (int i = 0; i < n; ++i)
        line->setValue(static_cast<float>(amplitude * std::cos(2.0 * pi * (fd + offset) * i / fs + phase)), 0, i);
      const auto iq = IqDemodulation().demodulate(SharedImage(line), fs, fd, factor, 1, 1.0, 101)->mem();
      for (int c = 60; c < iq->height() - 60 / factor; ++c) {
        const double t = c * factor / fs;
        // The rotation that a beamformer applies brings back the analytic signal of the line.
        const auto rotated = std::complex(iq->valueAsDouble(0, c, 0, 0), iq->valueAsDouble(0, c, 0, 1)) *
                             std::polar(1.0, 2.0 * pi * fd * t);
        const auto analytic = std::polar(amplitude, 2.0 * pi * (fd + offset) * t + phase);
        EXPECT_LT(std::abs(rotated - analytic), 0.04 * amplitude) << "sample " << c << ", offset " << offset;
      }
    }
}

TEST_F(IqDemodulationTest, ShortSaturates) {
  // The fundamental of a full square wave, in phase with the mixing signal, is 4 / pi times too large for 16 bits.
  constexpr int n = 400, period = 40;
  for (const int sign : {1, -1}) {
    auto line = std::make_shared<TypedImage<short>>(1, n);
    for (int i = 0; i < n; ++i)
      line->setValue(static_cast<short>((i + period / 4) % period < period / 2 ? sign * 32767 : -sign * 32767), 0, i);
    const auto iq = IqDemodulation().demodulate(SharedImage(line), 40.0, 1.0, 1, 1, 1.0, 101)->mem();
    for (int c = 60; c < n - 60; ++c)
      ASSERT_EQ(iq->valueAsDouble(0, c, 0, 0), sign > 0 ? 32767.0 : -32768.0) << c;
  }
}

TEST_F(IqDemodulationTest, ResultDescribesItself) {
  ImageDescriptor descriptor(PixelHalf, 3, 41, 2);
  descriptor.setSpacing({0.3, 0.02, 1.5});
  SharedImage image(Tests::noiseImage(descriptor));
  image.setMatrix(Eigen::Matrix4d::Identity() * 12.0);

  const auto demodulate = [](const SharedImage& input) {
    return IqDemodulation().demodulate(input, 8.0, 1.0, 4, 1, 1.0, 25);
  };
  const auto result = demodulate(image);
  EXPECT_EQ(result->matrix(), image.matrix());
  EXPECT_EQ(result->descriptor().pixelType(), PixelHalf);
  EXPECT_EQ(result->descriptor().channels(), 2);
  EXPECT_EQ(result->descriptor().dimensions(), Eigen::Vector3i(3, 11, 2));
  EXPECT_EQ(result->descriptor().spacing(), Eigen::Vector3d(0.3, 0.02 * 4, 1.5));
  const SharedImage floats(Tests::noiseImage(descriptorOf(PixelFloat, descriptor.dimensions())));
  EXPECT_TRUE(Tests::sameBytes(*result->mem(), *demodulate(floats)->mem()))
      << "half floats are computed as the floats that they are in memory";

  // Other types have no kernel.
  const auto undefined = demodulate(SharedImage(std::make_shared<TypedImage<unsigned char>>(4, 10)));
  ASSERT_NE(undefined, nullptr);
  EXPECT_EQ(undefined->descriptor().dimensions(), Eigen::Vector3i(4, 3, 1));
  EXPECT_EQ(undefined->descriptor().pixelType(), PixelUInt8);
}

TEST_F(IqDemodulationTest, RefusesBadArguments) {
  const SharedImage image(Tests::noiseImage({PixelFloat, 4, 20}));
  const IqDemodulation demodulator;
  const struct {
    int factor, axis, taps;
    const char* message;
  } refused[] = {{1, 3, 101, "Invalid axis"},
                 {0, -1, 100, "Invalid axis"},
                 {0, 1, 100, "Decimation factor must be positive"},
                 {1, 1, 100, "Even filter length is not supported. Given length: 100"}};
  for (const auto& c : refused) {
    EXPECT_EQ(Tests::errorOf<std::invalid_argument>(
                  [&] { demodulator.demodulate(image, 8.0, 1.0, c.factor, c.axis, 1.0, c.taps); }),
              c.message);
    EXPECT_EQ(demodulator.cachedSignals(), nullptr);
  }
}

TEST_F(IqDemodulationTest, KeepsItsSignalsAsLongAsNothingChanges) {
  const SharedImage image(Tests::noiseImage({PixelFloat, 4, 20, 30}));
  struct Call {
    double fs = 8.0, fd = 1.0;
    int factor = 2, axis = 1;
    double ratio = 1.0;
    int taps = 51;
  };
  const auto run = [&](const IqDemodulation& demodulator, const Call& c) {
    return demodulator.demodulate(image, c.fs, c.fd, c.factor, c.axis, c.ratio, c.taps)->mem();
  };
  for (const Call& changed :
       {Call{.fs = 9.0}, Call{.fd = 1.5}, Call{.factor = 3}, Call{.axis = 2}, Call{.ratio = 0.9}, Call{.taps = 53}}) {
    const IqDemodulation demodulator;
    run(demodulator, {});
    const IqDemodulation::CachedSignals* const record = demodulator.cachedSignals();
    run(demodulator, {});
    EXPECT_EQ(demodulator.cachedSignals(), record);
    EXPECT_TRUE(Tests::sameBytes(*run(demodulator, changed), *run(IqDemodulation(), changed)));
  }
}

} // namespace
} // namespace Kelvaris::US::GPU
