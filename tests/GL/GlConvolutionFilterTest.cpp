#include "GL/GlConvolutionFilter.h"

#include "RequireGL.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace Kelvaris {
namespace {

using Filter = GlConvolutionFilter;

bool isUnsigned(int pixelType) {
  return pixelType == PixelUInt8 || pixelType == PixelUInt16 || pixelType == PixelUInt32;
}

std::unique_ptr<MemImage> noise(const ImageDescriptor& descriptor, double low, double high) {
  auto image = MemImage::create(descriptor);
  std::mt19937 random(11);
  std::uniform_real_distribution<double> uniform(low, high);
  dispatchPixelType(descriptor.pixelType(), [&]<typename T>() {
    std::generate_n(static_cast<T*>(image->data()), descriptor.elementCount(),
                    [&] { return static_cast<T>(uniform(random)); });
  });
  return image;
}

TypedImage<float> kernelOf(int taps, int axis, float gain = 1.0f) {
  Eigen::Vector3i extent(1, 1, 1);
  extent[axis] = taps;
  TypedImage<float> kernel(extent.x(), extent.y(), extent.z());
  std::mt19937 random(5);
  std::uniform_real_distribution<float> uniform(-gain, gain);
  std::generate_n(kernel.pointer(), taps, [&] { return uniform(random); });
  return kernel;
}

/// The sum of the header, in double precision; `size` is the sum of the terms' absolute values.
double convolved(const MemImage& in, const TypedImage<float>& kernel, int axis, int border, Eigen::Vector3i at,
                 int channel, double& size) {
  const int taps = static_cast<int>(kernel.size()), extent = in.descriptor().dimensions()[axis], c = at[axis];
  double sum = size = 0.0;
  for (int k = 0; k < taps; ++k) {
    int i = c + taps / 2 - k;
    if (border == Filter::EdgeBorder) i = std::clamp(i, 0, extent - 1);
    if (i < 0 || i >= extent) continue;
    at[axis] = i;
    const double term =
        static_cast<double>(kernel[static_cast<std::size_t>(k)]) * in.valueAsDouble(at.x(), at.y(), at.z(), channel);
    sum += term;
    size += std::abs(term);
  }
  return sum;
}

struct Case {
  const char* what;
  int inputType, outputType;
  Eigen::Vector3i extent;
  int channels, taps, axis, border;
};

TEST(GlConvolutionFilter, AgreesWithTheSumInDoublePrecision) {
  KELVARIS_REQUIRE_GL();
  constexpr int zero = Filter::ZeroBorder, edge = Filter::EdgeBorder;
  const Case cases[] = {
      {"traces of a baseband image", PixelFloat, PixelFloat, {7, 60, 1}, 2, 11, 1, zero},
      {"into 16 bits", PixelFloat, PixelInt16, {7, 60, 1}, 2, 11, 1, zero},
      {"along the rows", PixelFloat, PixelFloat, {60, 5, 1}, 1, 11, 0, zero},
      {"along the slices", PixelFloat, PixelFloat, {3, 4, 17}, 4, 7, 2, zero},
      {"traces of a volume", PixelFloat, PixelFloat, {3, 40, 5}, 3, 7, 1, zero},
      {"kernel longer than the line", PixelFloat, PixelFloat, {2, 9, 1}, 1, 31, 1, zero},
      {"the same with edges", PixelFloat, PixelFloat, {2, 9, 1}, 1, 31, 1, edge},
      {"an even number of taps", PixelFloat, PixelFloat, {4, 20, 1}, 1, 6, 1, zero},
      {"two taps, edges", PixelFloat, PixelFloat, {4, 20, 1}, 1, 2, 1, edge},
      {"slices with edges", PixelFloat, PixelFloat, {4, 2, 5}, 1, 5, 2, edge},
      {"a single tap", PixelFloat, PixelFloat, {4, 20, 2}, 2, 1, 0, zero},
      {"a single pixel", PixelFloat, PixelFloat, {1, 1, 1}, 1, 5, 1, zero},
      {"int8", PixelInt8, PixelInt8, {5, 30, 1}, 1, 9, 1, zero},
      {"uint8", PixelUInt8, PixelUInt8, {5, 30, 1}, 3, 9, 1, zero},
      {"int16", PixelInt16, PixelInt16, {5, 30, 2}, 1, 9, 1, zero},
      {"uint16", PixelUInt16, PixelUInt16, {5, 30, 1}, 1, 9, 0, edge},
      {"int32", PixelInt32, PixelInt32, {5, 30, 1}, 2, 9, 1, zero},
      {"uint32", PixelUInt32, PixelUInt32, {5, 30, 1}, 1, 9, 1, zero},
      {"half", PixelHalf, PixelHalf, {5, 30, 1}, 1, 9, 1, zero},
      {"double", PixelDouble, PixelDouble, {5, 30, 1}, 1, 9, 1, zero},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ImageDescriptor descriptor(c.inputType, c.extent.x(), c.extent.y(), c.extent.z(), c.channels);
    const auto input = noise(descriptor, isUnsigned(c.inputType) ? 0.0 : -100.0, 100.0);
    const GlImage texture(*input);
    const auto held = texture.download(); // what a half holds
    descriptor.setPixelType(c.outputType);
    GlImage output(descriptor);
    const auto kernel = kernelOf(c.taps, c.axis);
    Filter filter(nullptr, c.border);
    filter.setKernel(kernel);
    filter.apply(texture, output);

    const auto result = output.download();
    int wrong = 0;
    for (int z = 0; z < c.extent.z(); ++z)
      for (int y = 0; y < c.extent.y(); ++y)
        for (int x = 0; x < c.extent.x(); ++x)
          for (int channel = 0; channel < c.channels; ++channel) {
            double size = 0.0, expected = convolved(*held, kernel, c.axis, c.border, {x, y, z}, channel, size);
            double tolerance = 1e-6 * size + (c.outputType == PixelHalf ? std::abs(expected) / 1024.0 : 0.0);
            dispatchPixelType(c.outputType, [&]<typename T>() {
              if constexpr (std::is_integral_v<T>) {
                tolerance = std::abs(std::abs(expected - std::trunc(expected)) - 0.5) < 1e-3 ? 1.0 : 0.0;
                expected = std::clamp(std::round(expected), static_cast<double>(std::numeric_limits<T>::lowest()),
                                      static_cast<double>(std::numeric_limits<T>::max()));
              }
            });
            wrong += !(std::abs(result->valueAsDouble(x, y, z, channel) - expected) <= tolerance);
          }
    EXPECT_EQ(wrong, 0);
  }
}

/// Values that decide how a result becomes an integer, by a kernel of one tap.
TEST(GlConvolutionFilter, StoresIntegersRoundedAwayFromZeroAndClamped) {
  KELVARIS_REQUIRE_GL();
  constexpr float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
  const std::vector<float> values = {0.5f,      -0.5f, 1.5f,     0.49999997f, -0.49999997f, 2.5f,   -32769, 32768,
                                     -32767.6f, nan,   infinity, -infinity,   8388609,      300.4f, -0.6f};
  const struct {
    int pixelType;
    std::vector<double> expected;
  } cases[] = {
      {PixelInt16, {1, -1, 2, 0, 0, 3, -32768, 32767, -32768, 0, 32767, -32768, 32767, 300, -1}},
      {PixelUInt8, {1, 0, 2, 0, 0, 3, 0, 255, 0, 0, 255, 0, 255, 255, 0}},
      {PixelInt32, {1, -1, 2, 0, 0, 3, -32769, 32768, -32768, 0, 2147483647, -2147483648.0, 8388609, 300, -1}},
  };
  TypedImage<float> row(static_cast<int>(values.size()), 1);
  std::copy(values.begin(), values.end(), row.pointer());
  TypedImage<float> one(1, 1);
  one[0] = 1.0f;
  Filter filter(&one, Filter::ZeroBorder);
  for (const auto& c : cases) {
    GlImage output(ImageDescriptor(c.pixelType, row.width(), 1));
    filter.apply(GlImage(row), output);
    // The texture itself holds the integers: read it as floats.
    GlImage copy(ImageDescriptor(PixelFloat, row.width(), 1));
    filter.apply(output, copy);
    const auto stored = output.download(), texels = copy.download();
    for (int i = 0; i < row.width(); ++i) {
      const double expected = c.expected[static_cast<std::size_t>(i)];
      EXPECT_EQ(stored->valueAsDouble(i, 0, 0, 0), expected) << ImageDescriptor::pixelTypeName(c.pixelType) << row[i];
      EXPECT_EQ(texels->valueAsDouble(i, 0, 0, 0), static_cast<double>(static_cast<float>(expected)));
    }
  }
}

TEST(GlConvolutionFilter, OneObjectTakesOtherKernelsAndShapes) {
  KELVARIS_REQUIRE_GL();
  Filter filter(nullptr, 0);
  for (const int axis : {1, 0, 2, 1}) {
    const auto kernel = kernelOf(5, axis);
    filter.setKernel(kernel);
    for (const int slices : {1, 3}) {
      const auto input = noise(ImageDescriptor(PixelFloat, 6, 7, slices, slices), -1.0, 1.0);
      GlImage output(input->descriptor());
      filter.apply(GlImage(*input), output);
      double size = 0.0;
      EXPECT_NEAR(output.download()->valueAsDouble(4, 5, slices - 1, slices - 1),
                  convolved(*input, kernel, axis, 0, {4, 5, slices - 1}, slices - 1, size), 1e-5);
    }
  }
}

TEST(GlConvolutionFilter, SaysWhatIsWrong) {
  KELVARIS_REQUIRE_GL();
  const GlImage input(ImageDescriptor(PixelFloat, 4, 5, 1, 2));
  const auto apply = [&](const ImageDescriptor& descriptor) {
    Filter filter(nullptr, 0);
    filter.setKernel(kernelOf(3, 1));
    GlImage output(descriptor);
    filter.apply(input, output);
  };
  const struct {
    const char* part;
    std::function<void()> call;
  } cases[] = {
      {"Unknown border 2", [] { Filter(nullptr, 2); }},
      {"needs a kernel first",
       [&] {
         GlImage output(input.descriptor());
         Filter(nullptr, 0).apply(input, output);
       }},
      {"float, 3 x 3 x 1, 1 channel", [] { Filter(nullptr, 0).setKernel(TypedImage<float>(3, 3)); }},
      {"2 channels can't filter", [] { Filter(nullptr, 0).setKernel(TypedImage<float>(3, 1, 1, 2)); }},
      {"0 x 1 x 1", [] { Filter(nullptr, 0).setKernel(TypedImage<float>(0, 1)); }},
      {"4 x 5 x 1 pixels of 2 components, not 4 x 6 x 1 pixels of 2 components",
       [&] { apply(ImageDescriptor(PixelFloat, 4, 6, 1, 2)); }},
      {"not 4 x 5 x 1 pixels of 1 components", [&] { apply(ImageDescriptor(PixelFloat, 4, 5)); }},
      {"the texture that it reads",
       [&] {
         GlImage image(input.descriptor());
         Filter filter(nullptr, 0);
         filter.setKernel(kernelOf(3, 1));
         filter.apply(image, image);
       }},
  };
  for (const auto& c : cases)
    try {
      c.call();
      ADD_FAILURE() << c.part;
    } catch (const std::invalid_argument& error) {
      EXPECT_NE(std::string(error.what()).find(c.part), std::string::npos) << error.what();
    }
}

} // namespace
} // namespace Kelvaris
