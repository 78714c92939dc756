#include "Lib/ImageProcessing.h"

#include "Lib/IntensityMask.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Kelvaris {
namespace {

TEST(ImageProcessing, CropsAndPads) {
  for (const int type : {PixelInt16, PixelDouble}) {
    ImageDescriptor descriptor(type, 5, 4, 3, 2);
    descriptor.setSpacing({0.5, 0.25, 2.0});
    descriptor.setScale(4.0);
    SharedImage image(std::shared_ptr<Image>(Tests::noiseImage(descriptor)));
    image.setMask(std::make_shared<IntensityMask>(type, 7.0));
    const auto samples = image.mem();
    const auto value = [&](int x, int y, int z, int channel) {
      const bool inside = x >= 0 && x < 5 && y >= 0 && y < 4 && z >= 0 && z < 3;
      return inside ? samples->valueAsDouble(x, y, z, channel) : 0.0;
    };
    const auto expectShifted = [&](const SharedImage& result, const Eigen::Vector3i& extent,
                                   const Eigen::Vector3i& by) {
      const ImageDescriptor& d = result.descriptor();
      EXPECT_EQ(Eigen::Vector3i(d.width(), d.height(), d.slices()), extent);
      EXPECT_EQ(d.spacing(), descriptor.spacing());
      EXPECT_EQ(d.scale(), 4.0);
      EXPECT_EQ(result.mask(), image.mask());
      EXPECT_EQ(Tests::worstError(*result.mem(),
                                  [&](int x, int y, int z, int channel) {
                                    return value(x + by.x(), y + by.y(), z + by.z(), channel);
                                  }),
                0.0);
    };
    expectShifted(*ImageProcessing::createCropped(image, {1, 2, 1}, {3, 2, 1}), {3, 2, 1}, {1, 2, 1});
    expectShifted(*ImageProcessing::createPadded(image, {2, 1, 1}, {1, 0, 2}), {8, 5, 6}, {-2, -1, -1});
    EXPECT_THROW(ImageProcessing::createCropped(image, {0, 1, 0}, {5, 4, 3}), std::invalid_argument);
    EXPECT_THROW(ImageProcessing::createCropped(image, {-1, 0, 0}, {1, 1, 1}), std::invalid_argument);
    EXPECT_THROW(ImageProcessing::createCropped(image, {0, 0, 0}, {5, 0, 3}), std::invalid_argument);
    EXPECT_THROW(ImageProcessing::createPadded(image, {0, 0, 0}, {0, -1, 0}), std::invalid_argument);
  }
}

} // namespace
} // namespace Kelvaris
