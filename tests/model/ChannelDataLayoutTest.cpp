#include "model/ChannelDataLayout.h"

#include "Core/Properties.h"
#include "support/Images.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

using Axis = ChannelDataLayout::Axis;
using Eigen::Vector3i;

const std::vector<Vector3i> kOrders = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};

ChannelDataLayout layoutOf(const Vector3i& order) {
  return {static_cast<Axis>(order[0]), static_cast<Axis>(order[1]), static_cast<Axis>(order[2])};
}

TEST(ChannelDataLayout, FindsAxesAndPacksCoordinates) {
  EXPECT_EQ(layoutOf({1, 0, 2}).packVec(5, 6, 7), Vector3i(6, 5, 7));
  for (const Vector3i& order : kOrders) {
    const ChannelDataLayout layout = layoutOf(order);
    EXPECT_EQ(layout.unpackVec(layout.packVec(5, 6, 7)), Vector3i(7, 6, 5));
    for (int dimension = 0; dimension < 3; ++dimension)
      EXPECT_EQ(layout.axisIndex(layout.axisSemantics(dimension)), dimension);
    EXPECT_EQ(layout == ChannelDataLayout(), order == kOrders[0]);
  }
  const ChannelDataLayout same = layoutOf({1, 1, 1});
  EXPECT_EQ(same.channelsAxisIndex(), 3);
  EXPECT_EQ(same.slowTimeAxisIndex(), 3);
  EXPECT_EQ(same.unpackVec({4, 5, 6}), Vector3i(0, 4, 0));
}

TEST(ChannelDataLayout, StoresThreeEntriesOnly) {
  Properties stored;
  layoutOf({2, 0, 1}).configuration(&stored);
  ChannelDataLayout layout;
  layout.configure(&stored);
  EXPECT_EQ(layout, layoutOf({2, 0, 1}));
  stored.setParam("axisSemantics", std::vector{1, 0});
  layout.configure(&stored);
  EXPECT_EQ(layout, layoutOf({2, 0, 1}));
}

/// That `to` is a layout of the same samples in the other order, at the places that it says, and leads back.
void expectMoved(const MemImage& image, const ChannelDataLayout& from, const ChannelDataLayout& to) {
  const auto moved = permuteChannelData(image, from, to);
  EXPECT_EQ(moved->descriptor().spacing(), image.descriptor().spacing());
  const Vector3i extents = from.unpackVec(image.descriptor().dimensions()).reverse(); // channels, samples, events
  ASSERT_EQ(moved->descriptor().dimensions(), to.packVec(extents[0], extents[1], extents[2]));
  const auto componentBytes = static_cast<std::size_t>(image.descriptor().bytesPerComponent());
  const auto pixelAt = [&](const MemImage& of, const Vector3i& at) {
    return static_cast<const unsigned char*>(of.data()) + of.index(at[0], at[1], at[2], 0) * componentBytes;
  };
  int wrong = 0;
  for (int s = 0; s < extents[2]; ++s)
    for (int f = 0; f < extents[1]; ++f)
      for (int c = 0; c < extents[0]; ++c)
        wrong += std::memcmp(pixelAt(image, from.packVec(c, f, s)), pixelAt(*moved, to.packVec(c, f, s)),
                             componentBytes * static_cast<std::size_t>(image.channels())) != 0;
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(Tests::sameBytes(*permuteChannelData(*moved, to, from), image));
}

/// Every pair of layouts; extents beyond and between the tiles of the copy.
TEST(Permutation, MovesEverySampleAndBack) {
  for (const int type :
       {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelUInt32, PixelFloat, PixelDouble, PixelHalf})
    for (const Vector3i& from : kOrders)
      for (const Vector3i& to : kOrders) {
        SCOPED_TRACE(::testing::Message() << type << ", " << from.transpose() << " to " << to.transpose());
        ImageDescriptor descriptor(type, 0, 0, 0, 2);
        descriptor.setDimensions(layoutOf(from).packVec(33, 70, 2));
        descriptor.setSpacing({0.1, 0.2, 0.3});
        expectMoved(*Tests::randomBytes(descriptor), layoutOf(from), layoutOf(to));
      }
  // Large enough to be shared between threads.
  expectMoved(*Tests::randomBytes({PixelInt32, 96, 257, 7, 3}), {}, layoutOf({2, 0, 1}));
}

TEST(Permutation, RefusesLayoutsThatAreNone) {
  const TypedImage<short> image(2, 3, 4);
  EXPECT_THROW(permuteChannelData(image, layoutOf({0, 0, 0}), {}), std::invalid_argument);
  EXPECT_THROW(permuteChannelData(image, {}, layoutOf({0, 1, 3})), std::invalid_argument);
}

} // namespace
} // namespace Kelvaris::US
