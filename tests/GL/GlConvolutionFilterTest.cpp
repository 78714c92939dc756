#include "GL/GlConvolutionFilter.h"

#include "RequireGL.h"
#include "reference/Lines.h"
#include "support/ErrorOf.h"
#include "support/Samples.h"

namespace Kelvaris {
namespace {

using Filter = GlConvolutionFilter;
using GlConvolutionFilterTest = Tests::GLTest<>;

TypedImage<float> kernelOf(int taps, int axis) {
  Eigen::Vector3i extent(1, 1, 1);
  extent[axis] = taps;
  TypedImage<float> kernel(extent.x(), extent.y(), extent.z());
  for (int k = 0; k < taps; ++k)
    kernel[static_cast<std::size_t>(k)] = std::cos(static_cast<float>(k * k)); // not symmetric
  return kernel;
}

TEST_F(GlConvolutionFilterTest, AgreesWithTheSumInDoublePrecision) {
  const struct {
    const char* what;
    int inputType, outputType;
    Eigen::Vector3i extent;
    int channels, taps, axis, border;
  } cases[] = {
      {"traces of a baseband image", PixelFloat, PixelInt16, {7, 60, 1}, 2, 11, 1, Filter::ZeroBorder},
      {"along the rows of int32", PixelInt32, PixelInt32, {60, 5, 1}, 1, 11, 0, Filter::ZeroBorder},
      {"along the slices of floats", PixelFloat, PixelFloat, {3, 4, 17}, 4, 7, 2, Filter::ZeroBorder},
      {"kernel longer than the line, of doubles", PixelDouble, PixelDouble, {2, 9, 5}, 3, 31, 1, Filter::ZeroBorder},
      {"an even number of taps, of uint32", PixelUInt32, PixelUInt32, {4, 20, 1}, 1, 6, 1, Filter::EdgeBorder},
      {"half", PixelHalf, PixelHalf, {5, 30, 1}, 1, 9, 1, Filter::ZeroBorder},
  };
  Filter zeros(nullptr, Filter::ZeroBorder), edges(nullptr, Filter::EdgeBorder);
  for (const auto& c : cases) {
    ImageDescriptor descriptor(c.inputType, c.extent.x(), c.extent.y(), c.extent.z(), c.channels);
    const GlImage input(*Tests::noiseImage(descriptor));
    const auto held = input.download(); // what a half holds
    descriptor.setPixelType(c.outputType);
    GlImage output(descriptor);
    const auto kernel = kernelOf(c.taps, c.axis);
    const bool hasEdges = c.border == Filter::EdgeBorder;
    Filter& filter = hasEdges ? edges : zeros;
    filter.setKernel(kernel);
    filter.apply(input, output);
    const double error = Tests::worstError(*output.download(), [&](int x, int y, int z, int channel) {
      return Tests::stored(Tests::convolved(*held, kernel, c.axis, hasEdges, {x, y, z}, channel), c.outputType);
    });
    EXPECT_LE(error, c.outputType == PixelHalf ? 0.5 : 2e-4) << c.what;
  }
}

TEST_F(GlConvolutionFilterTest, ItsTexturesHoldIntegersRoundedAwayFromZeroAndClamped) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN(), infinity = std::numeric_limits<double>::infinity();
  const double values[] = {0.5, -0.5, 0.49999997, 2.5, -32769, -32767.6, nan, infinity, -0.6};
  const double expected[] = {1, -1, 0, 3, -32768, -32768, 0, 32767, -1};
  const auto row = Tests::imageOf({PixelFloat, 9, 1}, [&](int x, int, int, int) { return values[x]; });
  TypedImage<float> one(1, 1);
  one[0] = 1.0f;
  Filter filter(&one, Filter::ZeroBorder);
  GlImage output(ImageDescriptor(PixelInt16, 9, 1)), texels(row->descriptor());
  filter.apply(GlImage(*row), output);
  filter.apply(output, texels);
  EXPECT_EQ(Tests::worstError(*texels.download(), [&](int x, int, int, int) { return expected[x]; }), 0.0);
}

TEST_F(GlConvolutionFilterTest, SaysWhatIsWrong) {
  const auto error = [](auto&& action) { return Tests::errorOf<std::invalid_argument>(action); };
  const auto taps = kernelOf(3, 1);
  GlImage image(ImageDescriptor(PixelFloat, 4, 5)), other(ImageDescriptor(PixelFloat, 4, 6, 1, 2));
  Filter filter(nullptr, 0);
  EXPECT_CONTAINS(error([&] { Filter(&taps, 2); }), "Unknown border 2");
  EXPECT_CONTAINS(error([&] { filter.apply(image, image); }), "needs a kernel first");
  EXPECT_CONTAINS(error([&] { filter.setKernel(TypedImage<float>(3, 3)); }), "float, 3 x 3 x 1, 1 channel can't");
  EXPECT_CONTAINS(error([&] { filter.setKernel(TypedImage<float>(0, 1)); }), "0 x 1 x 1");
  filter.setKernel(taps);
  EXPECT_CONTAINS(error([&] { filter.apply(image, image); }), "the texture that it reads");
  EXPECT_CONTAINS(error([&] { filter.apply(image, other); }), "not 4 x 6 x 1 pixels of 2 components");
}

} // namespace
} // namespace Kelvaris
