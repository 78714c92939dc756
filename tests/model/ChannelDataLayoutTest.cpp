#include "model/ChannelDataLayout.h"

#include "Core/Properties.h"
#include "Lib/MemImage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <vector>

namespace Kelvaris::US {
namespace {

using Axis = ChannelDataLayout::Axis;
using Eigen::Vector3i;

const std::vector<Vector3i> kOrders = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};

ChannelDataLayout layoutOf(const Vector3i& order) {
  return {static_cast<Axis>(order[0]), static_cast<Axis>(order[1]), static_cast<Axis>(order[2])};
}

TEST(ChannelDataLayout, FindsAxesAndPacksCoordinates) {
  const ChannelDataLayout standard;
  EXPECT_EQ(standard.channelsAxisIndex(), 0);
  EXPECT_EQ(standard.fastTimeAxisIndex(), 1);
  EXPECT_EQ(standard.slowTimeAxisIndex(), 2);
  EXPECT_EQ(layoutOf({1, 0, 2}).packVec(5, 6, 7), Vector3i(6, 5, 7));
  EXPECT_EQ(layoutOf({2, 0, 1}).packVec(5, 6, 7), Vector3i(7, 5, 6));
  for (const Vector3i& order : kOrders) {
    const ChannelDataLayout layout = layoutOf(order);
    EXPECT_EQ(layout.unpackVec(layout.packVec(5, 6, 7)), Vector3i(7, 6, 5));
    for (int dimension = 0; dimension < 3; ++dimension)
      EXPECT_EQ(layout.axisIndex(layout.axisSemantics(dimension)), dimension);
    EXPECT_EQ(layout == standard, order == kOrders[0]);
  }
  const ChannelDataLayout same = layoutOf({1, 1, 1});
  EXPECT_EQ(same.channelsAxisIndex(), 3);
  EXPECT_EQ(same.fastTimeAxisIndex(), 0);
  EXPECT_EQ(same.slowTimeAxisIndex(), 3);
  EXPECT_EQ(same.unpackVec({4, 5, 6}), Vector3i(0, 4, 0));
}

TEST(ChannelDataLayout, StoresThreeEntriesOnly) {
  Properties stored;
  layoutOf({2, 0, 1}).configuration(&stored);
  ChannelDataLayout layout;
  layout.configure(&stored);
  EXPECT_EQ(layout, layoutOf({2, 0, 1}));
  for (const std::vector<int>& wrong : {std::vector<int>{1, 0}, {}, {0, 1, 2, 0}}) {
    stored.setParam("axisSemantics", wrong);
    layout.configure(&stored);
    EXPECT_EQ(layout, layoutOf({2, 0, 1}));
  }
  layout.configure(nullptr);
  EXPECT_EQ(layout.clone()->id(), "ChannelDataLayout");
}

class Permutation : public ::testing::TestWithParam<int> {};

/// Every pair of layouts; extents beyond and between the tiles of the copy.
TEST_P(Permutation, MovesEverySampleAndBack) {
  for (const int components : {1, 2})
    for (const Vector3i& fromOrder : kOrders)
      for (const Vector3i& toOrder : kOrders) {
        const ChannelDataLayout from = layoutOf(fromOrder), to = layoutOf(toOrder);
        const int channels = 33, samples = 70, events = 2;
        ImageDescriptor descriptor(GetParam(), 0, 0, 0, components);
        descriptor.setDimensions(from.packVec(channels, samples, events));
        descriptor.setSpacing({0.1, 0.2, 0.3});
        const auto image = MemImage::create(descriptor);
        auto* bytes = static_cast<unsigned char*>(image->data());
        for (std::size_t i = 0; i < image->byteSize(); ++i)
          bytes[i] = static_cast<unsigned char>((i * 2654435761u) >> 11); // NaN patterns too

        const auto moved = permuteChannelData(*image, from, to);
        EXPECT_EQ(moved->descriptor().spacing(), descriptor.spacing());
        ASSERT_EQ(moved->descriptor().dimensions(), to.packVec(channels, samples, events));
        const auto pixelBytes = static_cast<std::size_t>(descriptor.bytesPerComponent() * components);
        const auto pixelAt = [&](const MemImage& im, const Vector3i& at) {
          const auto* data = static_cast<const unsigned char*>(im.data());
          return data + im.index(at[0], at[1], at[2], 0) * static_cast<std::size_t>(descriptor.bytesPerComponent());
        };
        int wrong = 0;
        for (int s = 0; s < events; ++s)
          for (int f = 0; f < samples; ++f)
            for (int c = 0; c < channels; ++c)
              wrong += std::memcmp(pixelAt(*image, from.packVec(c, f, s)), pixelAt(*moved, to.packVec(c, f, s)),
                                   pixelBytes) != 0;
        EXPECT_EQ(wrong, 0) << fromOrder.transpose() << " to " << toOrder.transpose();
        const auto back = permuteChannelData(*moved, to, from);
        EXPECT_EQ(std::memcmp(back->data(), image->data(), image->byteSize()), 0);
      }
}

INSTANTIATE_TEST_SUITE_P(PixelTypes, Permutation,
                         ::testing::Values(PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelUInt32,
                                           PixelFloat, PixelDouble, PixelHalf),
                         [](const auto& type) { return ImageDescriptor::pixelTypeName(type.param); });

/// Large enough to be shared between threads.
TEST(Permutation, MovesLargeBlocks) {
  const int channels = 96, samples = 257, events = 7, components = 3;
  TypedImage<int> image(channels, samples, events, components);
  for (std::size_t i = 0; i < image.size(); ++i)
    image[i] = static_cast<int>(i);
  for (const Vector3i& order : kOrders) {
    const ChannelDataLayout to = layoutOf(order);
    const auto moved = permuteChannelData(image, {}, to);
    const Vector3i strides = moved->descriptor().dimensions();
    const int* data = static_cast<const int*>(moved->data());
    bool same = true;
    for (int s = 0, i = 0; s < events; ++s)
      for (int f = 0; f < samples; ++f)
        for (int c = 0; c < channels; ++c)
          for (int k = 0; k < components; ++k, ++i) {
            const Vector3i at = to.packVec(c, f, s);
            same = same && data[((at[2] * strides[1] + at[1]) * strides[0] + at[0]) * components + k] == i;
          }
    EXPECT_TRUE(same) << order.transpose();
  }
}

TEST(Permutation, LayoutsThatAreNone) {
  const TypedImage<short> image(2, 3, 4);
  for (const Vector3i& wrong : {Vector3i(0, 0, 0), Vector3i(0, 1, 3), Vector3i(-1, 1, 2)}) {
    EXPECT_THROW(permuteChannelData(image, layoutOf(wrong), {}), std::invalid_argument);
    EXPECT_THROW(permuteChannelData(image, {}, layoutOf(wrong)), std::invalid_argument);
  }
}

} // namespace
} // namespace Kelvaris::US
