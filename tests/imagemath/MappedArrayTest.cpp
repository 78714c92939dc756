#include "BothEvaluators.h"

#include "Lib/IntensityMask.h"

namespace Kelvaris::ImageMath {
namespace {

using MappedArray = BothEvaluators;
KELVARIS_BOTH_EVALUATORS(MappedArray);

TEST_P(MappedArray, ASmallImageFollowsALargerOneAlongItsAxesOfExtentOne) {
  const auto samples =
      imageOf<short>(ImageDescriptor(PixelInt16, 7, 5, 2), [](std::size_t i) { return i * 37 % 1000; });
  const auto wave = imageOf<float>(ImageDescriptor(PixelFloat, 1, 5, 1, 2),
                                   [](std::size_t i) { return 0.7 * static_cast<double>(i) - 3; });
  const SharedImage image(samples), signal(wave);
  const auto product =
      BroadcastChannels(Array<const SharedImage, float>(image), 2) * Array<const SharedImage, float, true>(signal);
  EXPECT_TRUE(product.imgDesc().isApprox(ImageDescriptor(PixelFloat, 7, 5, 2, 2)));
  check("mixed", product, [&](int x, int y, int z, int c) {
    return static_cast<float>(samples->value(x, y, z)) * wave->value(0, y, 0, c);
  });
}

TEST_P(MappedArray, MovesPermutesAndWraps) {
  const struct {
    const char* name;
    Eigen::Vector3i offset, axes;
    bool hasBorder;
  } cases[] = {
      {"moved, edge", {3, -2, 1}, {0, 1, 2}, false},
      {"moved, border", {3, -2, 1}, {0, 1, 2}, true},
      {"moved out of it, edge", {900, 0, -900}, {0, 1, 2}, false},
      {"transposed", {0, 0, 0}, {1, 0, 2}, false},
      {"slices along rows", {0, 1, 0}, {2, 1, 0}, true},
      {"turned round", {-1, 2, 1}, {2, 0, 1}, true},
      {"turned round the other way", {-1, 2, 1}, {1, 2, 0}, false},
  };
  ImageDescriptor descriptor(PixelInt16, 11, 6, 4, 2);
  descriptor.setScale(2.0);
  const auto samples = imageOf<short>(descriptor, [](std::size_t i) { return i * 131 % 1999; });
  const SharedImage image(samples), shape(imageOf<float>(ImageDescriptor(PixelFloat, 9, 8, 5), [](auto) { return 0; }));
  const Array<const SharedImage> zero(shape);
  const Eigen::Vector4f border(-40, -60, 0, 0);
  for (const auto& c : cases) {
    Array<const SharedImage, void, true> moved(image, c.offset, c.axes);
    moved.setWrap(c.hasBorder ? 33069 : 33071);
    moved.setBorderColor(border);
    SharedImage result(ImageDescriptor(PixelFloat, 9, 8, 5, 2));
    Array<SharedImage, float> target(result);
    target = DeviceStrategyWrapper(zero + moved, usesShaders() ? 2 : 0);
    EXPECT_EQ(result.hasForm(ImageForm::Gl), usesShaders());
    const double error = Tests::worstError(*result.mem(), [&](int x, int y, int z, int channel) {
      const Eigen::Vector3i place = Eigen::Vector3i(x, y, z) + c.offset;
      const Eigen::Vector3i source(place[c.axes[0]], place[c.axes[1]], place[c.axes[2]]);
      const Eigen::Vector3i at = source.cwiseMax(0).cwiseMin(Eigen::Vector3i(10, 5, 3));
      return (c.hasBorder && at != source ? border[channel] : samples->value(at[0], at[1], at[2], channel)) / 2.0;
    });
    EXPECT_EQ(error, 0.0) << c.name;
  }
}

/// Valid on the left half of the image it belongs to. Known to main memory alone.
class LeftHalf : public Mask {
public:
  int deviceStrategy() const override { return 0; }
  void evaluate(const MemImage& image, int x, int, int, int count, unsigned char* valid) const override {
    for (int i = 0; i < count; ++i)
      valid[i] = 2 * (x + i) < image.width();
  }
};

TEST_P(MappedArray, MasksMoveAlong) {
  const SharedImage image(imageOf<short>(ImageDescriptor(PixelInt16, 10, 3), [](std::size_t i) { return i % 7; }));
  Array<const SharedImage, void, true> moved(image, {2, 0, 0});
  moved.setWrap(33069);
  check("half", Select(makeMaskLeaf(moved, std::make_shared<LeftHalf>()) > 0, moved, -1),
        [](int x, int y, int, int) { return x + 2 < 5 ? (y * 10 + x + 2) % 7 : -1; });
  check("intensity", Select(makeMaskLeaf(moved, std::make_shared<IntensityMask>(PixelInt16, 4)) > 0, moved, -1),
        [](int x, int y, int, int) { return x + 2 < 10 && (y * 10 + x + 2) % 7 != 4 ? (y * 10 + x + 2) % 7 : -1; });
}

TEST(Array, RefusesWhatItDoesNotKnow) {
  const SharedImage image(ImageDescriptor(PixelFloat, 2, 2));
  Array<const SharedImage, float, true> array(image);
  EXPECT_THROW(array.setMagFilter(9987), std::invalid_argument);
  EXPECT_THROW(array.setWrap(10497), std::invalid_argument);
  EXPECT_THROW((Array<const SharedImage, float, true>(image, {0, 0, 0}, {0, 0, 1})), std::invalid_argument);
}

} // namespace
} // namespace Kelvaris::ImageMath
