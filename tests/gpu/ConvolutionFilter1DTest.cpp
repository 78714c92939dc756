#include "gpu/ConvolutionFilter1D.h"

#include "gpu/BufferOf.h"
#include "gpu/ConvolutionFilter1DKernel.h"
#include "gpu/ConvolutionFilter1DLaunch.h"
#include "support/DeviceTest.h"
#include "support/ExpectedLog.h"

namespace Kelvaris::US::GPU {
namespace {

using Tests::bufferOf;

struct Case {
  int axis;
  Eigen::Vector3i dimensions;
  int taps;
};

// Filters of odd and even length, of one tap, longer than the line; fewer columns than lanes; flat images.
const std::vector<Case> cases = {
    {0, {211, 5, 3}, 51}, {0, {64, 3, 2}, 4},    {0, {5, 1, 1}, 51},    {0, {300, 1, 1}, 1},   {0, {70, 2, 1}, 130},
    {0, {1, 3, 2}, 3},    {1, {37, 131, 3}, 51}, {1, {128, 61, 1}, 50}, {1, {7, 203, 2}, 101}, {1, {1, 5, 1}, 3},
    {1, {33, 9, 2}, 25},  {1, {70, 7, 1}, 1},    {1, {40, 5, 1}, 2},    {1, {19, 1, 2}, 5},    {2, {70, 2, 55}, 51},
    {2, {3, 5, 99}, 24},  {2, {33, 1, 7}, 11},   {2, {16, 2, 2}, 1}};

/// What TypedImage calls the sample type that the kernels know as T.
template <typename T> using Pixel = std::conditional_t<std::is_same_v<T, char>, signed char, T>;

template <typename T> constexpr double rangeOf() {
  return std::is_same_v<T, float> ? 1.0 : static_cast<double>(std::numeric_limits<T>::max());
}

/// Values from the whole range of T.
template <typename T> std::shared_ptr<MemImage> randomImage(const Case& c, int channels = 1) {
  std::mt19937 random(static_cast<unsigned>(c.taps));
  std::uniform_real_distribution<double> uniform(std::is_signed_v<T> ? -rangeOf<T>() : 0.0, rangeOf<T>());
  const ImageDescriptor descriptor(pixelTypeOf<Pixel<T>>(), c.dimensions.x(), c.dimensions.y(), c.dimensions.z(),
                                   channels);
  return Tests::imageOf(descriptor, [&](int, int, int, int) { return uniform(random); });
}

/// Taps without symmetry that bring values from the range of T to results of up to some 50000.
template <typename T> TypedImage<float> randomFilter(int taps) {
  TypedImage<float> filter(taps, 1);
  std::mt19937 random(7);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  for (std::size_t i = 0; i < filter.size(); ++i)
    filter[i] = static_cast<float>(uniform(random) * 50000.0 / rangeOf<T>() / std::sqrt(static_cast<double>(taps)));
  return filter;
}

/// The system's rule for integers of all widths: round, clamp as a short, keep the low bits.
template <typename T> T stored(double v) {
  return static_cast<T>(static_cast<int>(std::clamp(std::round(v), -32768.0, 32767.0)));
}

template <typename T> class ConvolutionFilter1DTypes : public Tests::DeviceTest<> {};
using SampleTypes = testing::Types<char, unsigned char, short, unsigned short, int, unsigned int, float>;
TYPED_TEST_SUITE(ConvolutionFilter1DTypes, SampleTypes);
using ConvolutionFilter1DTest = Tests::DeviceTest<>;

TYPED_TEST(ConvolutionFilter1DTypes, IsTheExplicitSum) {
  using T = Pixel<TypeParam>;
  for (const Case& c : cases) {
    const auto input = randomImage<TypeParam>(c);
    const auto filter = randomFilter<TypeParam>(c.taps);
    const auto result = ConvolutionFilter1D(filter).apply(SharedImage(input), c.axis)->mem();
    ASSERT_TRUE(result->descriptor().isApprox(input->descriptor()));
    int wrong = 0;
    Tests::forEachSample(input->descriptor(), [&](int x, int y, int z, int) {
      double sum = 0.0, magnitude = 0.0;
      for (int tap = 0; tap < c.taps; ++tap) {
        Eigen::Vector3i at(x, y, z);
        at[c.axis] += tap - c.taps / 2;
        if (at[c.axis] < 0 || at[c.axis] >= c.dimensions[c.axis]) continue;
        const double term = static_cast<double>(filter[static_cast<std::size_t>(tap)]) *
                            input->valueAsDouble(at.x(), at.y(), at.z(), 0);
        sum += term;
        magnitude += std::abs(term);
      }
      const auto value = static_cast<T>(result->valueAsDouble(x, y, z, 0));
      const double tolerance = 1e-6 * magnitude;
      if constexpr (std::is_same_v<T, float>)
        wrong += !(std::abs(static_cast<double>(value) - sum) <= tolerance);
      else
        wrong += value != stored<T>(sum - tolerance) && value != stored<T>(sum + tolerance);
    });
    EXPECT_EQ(wrong, 0) << "axis " << c.axis << ", " << c.taps << " taps, " << c.dimensions.transpose();
  }
}

TYPED_TEST(ConvolutionFilter1DTypes, VectorUnitsGiveTheBitsOfSingleThreads) {
  using T = TypeParam;
  for (const Case& c : cases)
    for (const int channels : {1, 2}) {
      SCOPED_TRACE(testing::Message() << "axis " << c.axis << ", " << c.taps << " taps, " << c.dimensions.transpose());
      const auto input = randomImage<T>(c, channels);
      auto filter = randomFilter<T>(c.taps);
      Tests::expectBitsOfThreads(
          input->descriptor(), ConvolutionFilter1DArguments{bufferOf(*input), {}, bufferOf(filter)},
          [&](const auto& arguments, int x, int y, int z) {
            c.axis == 0   ? convolutionThread<T, 0>(arguments, x, y, z)
            : c.axis == 1 ? convolutionThread<T, 1>(arguments, x, y, z)
                          : convolutionThread<T, 2>(arguments, x, y, z);
          },
          [&](const auto& arguments, auto variant) { convolveOnCpu<T>(arguments, c.axis, variant); });
    }
}

/// What one tap makes of one pixel.
template <typename T> double timesTap(T value, float tap) {
  const auto pixel = Tests::imageOf({pixelTypeOf<T>(), 1, 1}, [&](int, int, int, int) { return value; });
  TypedImage<float> filter(1, 1);
  filter[0] = tap;
  return ConvolutionFilter1D(filter).apply(SharedImage(pixel), 0)->mem()->valueAsDouble(0, 0, 0, 0);
}

TEST_F(ConvolutionFilter1DTest, HalvesGoAwayFromZeroAndNaNIsZero) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(timesTap<short>(5, 0.5f), 3.0);
  EXPECT_EQ(timesTap<short>(-5, 0.5f), -3.0);
  EXPECT_EQ(timesTap<short>(3, nan), 0.0);
  EXPECT_EQ(timesTap<unsigned int>(7, nan), 0.0);
  EXPECT_TRUE(std::isnan(timesTap(1.0f, nan)));
}

TEST_F(ConvolutionFilter1DTest, ResultDescribesItself) {
  TypedImage<float> filter(3, 1);
  std::fill_n(filter.pointer(), 3, 1.0f);
  for (const int type : {PixelDouble, PixelHalf}) { // the former has no kernel, which is no error
    ImageDescriptor descriptor(type, 3, 11, 2);
    descriptor.setSpacing({0.3, 0.02, 1.5});
    SharedImage image(Tests::imageOf(descriptor, [](int, int, int, int) { return 100000.0; }));
    image.setMatrix(Eigen::Matrix4d::Identity() * 12.0);
    const auto result = ConvolutionFilter1D(filter).apply(image, 1);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->matrix(), image.matrix());
    EXPECT_TRUE(result->descriptor().isApprox(descriptor));
    EXPECT_TRUE(type == PixelDouble || result->mem()->valueAsDouble(2, 5, 1, 0) == 300000.0);
  }
}

TEST_F(ConvolutionFilter1DTest, RefusesWhatHasNoSuchAxis) {
  const ConvolutionFilter1D filter(TypedImage<float>(5, 1));
  const struct {
    Eigen::Vector3i dimensions;
    int axes; ///< those from 0 on that it has
  } images[] = {{{6, 1, 1}, 1}, {{1, 6, 1}, 2}, {{6, 6, 1}, 2}, {{6, 1, 2}, 3}, {{1, 1, 2}, 3}};
  for (const auto& c : images)
    for (int axis = -1; axis <= 3; ++axis) {
      const SharedImage image(randomImage<short>({axis, c.dimensions, 1}));
      const bool isTaken = axis >= 0 && axis < c.axes;
      Tests::ExpectedLog log;
      EXPECT_EQ(filter.apply(image, axis) != nullptr, isTaken) << c.dimensions.transpose();
      EXPECT_EQ(log.contains("4 : Failed to apply convolution filter 1D"), !isTaken);
    }
  EXPECT_THROW(ConvolutionFilter1D(TypedImage<float>(0, 1)), std::invalid_argument);
}

TEST_F(ConvolutionFilter1DTest, RefusesImagesThatDoNotFit) {
  using Buffer = CUDA::DeviceBufferImage;
  const Buffer input({PixelInt16, 6, 5, 2}), filter({PixelFloat, 3, 1});
  Buffer output({PixelInt16, 6, 5, 2});
  EXPECT_TRUE(convolutionFilter1D(input, output, filter, 2));
  EXPECT_FALSE(convolutionFilter1D(input, output, Buffer({PixelInt32, 3, 1}), 0));
  for (const ImageDescriptor& other :
       {ImageDescriptor(PixelInt16, 7, 5, 2), {PixelInt16, 6, 5, 3}, {PixelUInt16, 6, 5, 2}})
    EXPECT_FALSE(convolutionFilter1D(Buffer(other), output, filter, 0)) << other.toString();
}

} // namespace
} // namespace Kelvaris::US::GPU
