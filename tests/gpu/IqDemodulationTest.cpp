#include "gpu/IqDemodulation.h"

#include "gpu/BufferOf.h"
#include "gpu/IqDemodulationKernel.h"
#include "gpu/IqDemodulationLaunch.h"
#include "processing/SignalProcessing.h"
#include "support/DeviceTest.h"
#include "support/ErrorOf.h"

#include <complex>

namespace Kelvaris::US::GPU {
namespace {

using Tests::bufferOf;

struct Case {
  int axis;
  int factor;
  Eigen::Vector3i dimensions;
  int taps;
  double frequency() const { return taps == 25 ? -1.6667e6 : 5e6; }
  double ratio() const { return taps == 51 ? 0.7 : 1.0; } ///< of the filter's cut-off to the frequency
};
constexpr double samplingFrequency = 31.25e6;

// Odd sizes, lines shorter than the filter, fewer columns than lanes, one column, factors beyond the line's length.
const std::vector<Case> cases = {
    {0, 1, {211, 5, 3}, 101}, {0, 3, {211, 5, 3}, 101},  {0, 2, {5, 1, 1}, 3},        {0, 4, {64, 7, 2}, 51},
    {0, 9, {1, 3, 2}, 101},   {1, 1, {33, 130, 2}, 101}, {1, 2, {37, 131, 3}, 101},   {1, 3, {128, 61, 1}, 51},
    {1, 4, {7, 203, 2}, 101}, {1, 2, {1, 5, 1}, 3},      {1, 100, {40, 203, 2}, 101}, {1, 2147483647, {9, 3, 1}, 101},
    {1, 2, {20, 99, 1}, 25},  {2, 1, {19, 3, 70}, 101},  {2, 2, {70, 2, 55}, 101},    {2, 4, {3, 5, 99}, 25},
    {2, 70, {3, 1, 300}, 101}};

ImageDescriptor descriptorOf(int pixelType, const Eigen::Vector3i& dimensions, int channels = 1) {
  return {pixelType, dimensions.x(), dimensions.y(), dimensions.z(), channels};
}

/// So loud that some results are beyond 16 bits.
std::shared_ptr<MemImage> loudNoise(const ImageDescriptor& descriptor) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> uniform(-32000.0, 32000.0);
  return Tests::imageOf(descriptor, [&](int, int, int, int) { return uniform(random); });
}

/// Mixed, filtered and decimated, term by term in double precision, with the system's filter and mixing signal.
std::complex<double> explicitSum(const Case& c, const MemImage& input, const TypedImage<float>& filter,
                                 const TypedImage<float>& signal, Eigen::Vector3i at) {
  const long long place = at[c.axis], half = c.taps / 2, count = c.dimensions[c.axis];
  std::complex<double> sum = 0.0;
  // A sum reaches back by no more samples than its output has predecessors among the outputs.
  for (long long tap = 0; tap < c.taps; ++tap) {
    const long long k = tap - half, i = place * c.factor + k;
    if (k < -place || i >= count) continue;
    at[c.axis] = static_cast<int>(i);
    const auto s = static_cast<std::size_t>(i);
    sum += std::complex<double>(signal[2 * s], signal[2 * s + 1]) * input.valueAsDouble(at.x(), at.y(), at.z(), 0) *
           double(filter[static_cast<std::size_t>(tap)]);
  }
  return sum;
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
  const auto cutoff = static_cast<float>(c.frequency() * c.ratio());
  const auto filter =
      Signal::createFirFilter(Signal::FilterType::Lowpass, float(samplingFrequency), 0.0f, cutoff, c.taps, 0);
  const auto signal = Signal::sinusoidComplex(float(samplingFrequency), -static_cast<float>(c.frequency()),
                                              c.dimensions[c.axis], 2.0f, 0.0f, 0);
  for (const int pixelType : {PixelFloat, PixelHalf, PixelInt16, PixelUInt8}) {
    SharedImage input(loudNoise(descriptorOf(pixelType, c.dimensions)));
    input.setMatrix(Eigen::Matrix4d::Identity() * 12.0);
    const auto output =
        IqDemodulation().demodulate(input, samplingFrequency, c.frequency(), c.factor, c.axis, c.ratio(), c.taps);
    EXPECT_EQ(output->matrix(), input.matrix());
    ASSERT_TRUE(output->descriptor().isApprox(outputDescriptor(c, pixelType))) << output->descriptor().toString();
    if (pixelType == PixelUInt8) continue; // has no kernel, which is no error
    const auto pixels = input.mem();
    const double error = Tests::worstError(*output->mem(), [&](int x, int y, int z, int channel) {
      const std::complex<double> exact = explicitSum(c, *pixels, filter, signal, {x, y, z});
      const double part = channel == 0 ? exact.real() : exact.imag();
      return pixelType == PixelInt16 ? std::clamp(part, -32768.0, 32767.0) : part;
    });
    EXPECT_LE(error, pixelType == PixelInt16 ? 0.53 : 0.03); // a rounding, a millionth
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
