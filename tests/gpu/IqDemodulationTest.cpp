#include "gpu/IqDemodulation.h"

#include "gpu/IqDemodulationKernel.h"
#include "gpu/IqDemodulationLaunch.h"
#include "processing/SignalProcessing.h"
#include "support/DeviceTest.h"
#include "support/ErrorOf.h"
#include "support/Images.h"

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

template <typename T> std::shared_ptr<TypedImage<T>> randomImage(const Eigen::Vector3i& dimensions, double amplitude) {
  auto image = std::make_shared<TypedImage<T>>(dimensions.x(), dimensions.y(), dimensions.z());
  std::mt19937 random(static_cast<unsigned>(dimensions.dot(Eigen::Vector3i(1, 1000, 7))));
  std::uniform_real_distribution<double> uniform(-amplitude, amplitude);
  for (std::size_t i = 0; i < image->size(); ++i)
    (*image)[i] = static_cast<T>(uniform(random));
  return image;
}

/// Calls f(coordinates) for every pixel.
template <typename F> void forEachPixel(const Eigen::Vector3i& dimensions, F&& f) {
  for (int z = 0; z < dimensions.z(); ++z)
    for (int y = 0; y < dimensions.y(); ++y)
      for (int x = 0; x < dimensions.x(); ++x)
        f(Eigen::Vector3i(x, y, z));
}

std::complex<double> iqAt(const MemImage& image, const Eigen::Vector3i& p) {
  return {image.valueAsDouble(p.x(), p.y(), p.z(), 0), image.valueAsDouble(p.x(), p.y(), p.z(), 1)};
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

Eigen::Vector3i outputDimensions(const Case& c) {
  Eigen::Vector3i dimensions = c.dimensions;
  dimensions[c.axis] = (dimensions[c.axis] - 1) / c.factor + 1;
  return dimensions;
}

class IqDemodulationCases : public Tests::DeviceTest<testing::TestWithParam<Case>> {};
using IqDemodulationTest = Tests::DeviceTest<>;

TEST_P(IqDemodulationCases, FloatIsTheExplicitSum) {
  const Case c = GetParam();
  const auto input = randomImage<float>(c.dimensions, 1.0);
  const auto result = demodulate(c, input)->mem();
  ASSERT_EQ(result->descriptor().dimensions(), outputDimensions(c));
  ASSERT_EQ(result->channels(), 2);
  const Reference reference(c, *input);
  double error = 0.0, norm = 0.0;
  forEachPixel(outputDimensions(c), [&](const Eigen::Vector3i& p) {
    error += std::norm(iqAt(*result, p) - reference.at(p));
    norm += std::norm(reference.at(p));
  });
  EXPECT_GT(norm, 0.0);
  EXPECT_LT(std::sqrt(error / norm), 1e-6);
}

TEST_P(IqDemodulationCases, ShortIsTheRoundedSum) {
  const Case c = GetParam();
  const auto input = randomImage<short>(c.dimensions, 20000.0);
  const auto result = demodulate(c, input)->mem();
  ASSERT_EQ(result->descriptor().pixelType(), PixelInt16);
  const Reference reference(c, *input);
  const auto clamped = [](double v) { return std::clamp(v, -32768.0, 32767.0); };
  forEachPixel(outputDimensions(c), [&](const Eigen::Vector3i& p) {
    const auto exact = reference.at(p);
    EXPECT_NEAR(iqAt(*result, p).real(), clamped(exact.real()), 0.52) << p.transpose();
    EXPECT_NEAR(iqAt(*result, p).imag(), clamped(exact.imag()), 0.52) << p.transpose();
  });
}

INSTANTIATE_TEST_SUITE_P(Shapes, IqDemodulationCases, testing::ValuesIn(cases));

template <typename T> CUDA::KernelBuffer bufferOf(const TypedImage<T>& image) {
  CUDA::KernelBuffer buffer;
  buffer.width = image.width();
  buffer.height = image.height();
  buffer.slices = image.slices();
  buffer.data = const_cast<T*>(image.pointer());
  buffer.elementStride = static_cast<int>(sizeof(T)) * image.channels();
  buffer.rowPitch = static_cast<std::int64_t>(buffer.elementStride) * buffer.width;
  return buffer;
}

template <typename T> void compareWithThreads(const Case& c, int inputChannels) {
  TypedImage<T> input(c.dimensions.x(), c.dimensions.y(), c.dimensions.z(), inputChannels);
  const auto values = randomImage<T>(c.dimensions, 30000.0);
  for (std::size_t i = 0; i < input.size(); ++i)
    input[i] = (*values)[i / static_cast<std::size_t>(inputChannels)];
  const auto filter = Signal::createFirFilter(Signal::FilterType::Lowpass, 4.0f, 0.0f, 1.0f, c.taps, 0);
  const auto signal = Signal::sinusoidComplex(4.0f, -1.0f, c.dimensions[c.axis], 2.0f, 0.0f, 0);
  const Eigen::Vector3i o = outputDimensions(c);
  TypedImage<T> expected(o.x(), o.y(), o.z(), 2), result(o.x(), o.y(), o.z(), 2);
  IqDemodulationArguments a{bufferOf(input), bufferOf(expected), bufferOf(signal), bufferOf(filter),
                            std::min(c.factor, c.dimensions[c.axis])};
  forEachPixel(o, [&](const Eigen::Vector3i& p) {
    c.axis == 0   ? demodulationThread<T, 0>(a, p.x(), p.y(), p.z())
    : c.axis == 1 ? demodulationThread<T, 1>(a, p.x(), p.y(), p.z())
                  : demodulationThread<T, 2>(a, p.x(), p.y(), p.z());
  });
  a.output = bufferOf(result);
  for (const auto variant : {CUDA::CpuVariant::V2, CUDA::CpuVariant::V3, CUDA::CpuVariant::V4}) {
    if (!CUDA::isSupported(variant)) continue;
    std::fill_n(result.pointer(), result.size(), T(77));
    demodulateOnCpu<T>(a, c.axis, variant);
    EXPECT_EQ(std::memcmp(result.data(), expected.data(), expected.byteSize()), 0)
        << "variant " << static_cast<int>(variant) << ", axis " << c.axis << ", factor " << c.factor << ", "
        << c.dimensions.transpose();
  }
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
        const auto rotated = iqAt(*iq, {0, c, 0}) * std::polar(1.0, 2.0 * pi * fd * t);
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
      ASSERT_EQ(iqAt(*iq, {0, c, 0}).real(), sign > 0 ? 32767.0 : -32768.0) << c;
  }
}

TEST_F(IqDemodulationTest, ResultDescribesItself) {
  ImageDescriptor descriptor(PixelHalf, 3, 41, 2);
  descriptor.setSpacing({0.3, 0.02, 1.5});
  const auto floats = randomImage<float>(descriptor.dimensions(), 1.0);
  const auto halves = std::make_shared<TypedImage<float>>(descriptor);
  std::copy_n(floats->pointer(), floats->size(), halves->pointer());
  SharedImage image(halves);
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
  EXPECT_TRUE(Tests::sameBytes(*result->mem(), *demodulate(SharedImage(floats))->mem()))
      << "half floats are computed as the floats that they are in memory";

  // Other types have no kernel.
  const auto undefined = demodulate(SharedImage(std::make_shared<TypedImage<unsigned char>>(4, 10)));
  ASSERT_NE(undefined, nullptr);
  EXPECT_EQ(undefined->descriptor().dimensions(), Eigen::Vector3i(4, 3, 1));
  EXPECT_EQ(undefined->descriptor().pixelType(), PixelUInt8);
}

TEST_F(IqDemodulationTest, RefusesBadArguments) {
  const SharedImage image(randomImage<float>({4, 20, 1}, 1.0));
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
  const SharedImage image(randomImage<float>({4, 20, 30}, 1.0));
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
