#include "imagemath/CombineImageDescriptors.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace Kelvaris::ImageMath::internal {
namespace {

bool needsDouble(const ImageDescriptor& descriptor) {
  const int type = descriptor.pixelType();
  return type == PixelDouble || type == PixelInt32 || type == PixelUInt32;
}

int commonPixelType(const std::vector<ImageDescriptor>& shapes) {
  const int first = shapes.front().pixelType();
  if (std::all_of(shapes.begin(), shapes.end(), [&](const auto& d) { return d.pixelType() == first; })) return first;
  return std::any_of(shapes.begin(), shapes.end(), needsDouble) ? PixelDouble : PixelFloat;
}

} // namespace

ImageDescriptor combineImageDescriptors(const std::vector<ImageDescriptor>& descriptors, bool normalize,
                                        std::optional<PixelType> pixelType) {
  std::vector<ImageDescriptor> shapes;
  std::copy_if(descriptors.begin(), descriptors.end(), std::back_inserter(shapes),
               [](const ImageDescriptor& descriptor) { return descriptor.isValid(); });
  if (shapes.empty()) return {};

  Eigen::Vector3i extent = Eigen::Vector3i::Ones();
  int channels = 1;
  for (const ImageDescriptor& shape : shapes) {
    extent = extent.cwiseMax(shape.dimensions());
    if (shape.channels() != 1 && channels != 1 && shape.channels() != channels)
      throw std::invalid_argument(
          fmt::format("Images of {} and {} channels can't be combined; the numbers must be the same, or one of them 1",
                      channels, shape.channels()));
    channels = std::max(channels, shape.channels());
  }
  const auto whole = std::find_if(shapes.begin(), shapes.end(),
                                  [&](const ImageDescriptor& shape) { return shape.dimensions() == extent; });
  ImageDescriptor combined = whole != shapes.end() ? *whole : shapes.front();
  combined.setDimensions(extent, channels);
  combined.setPixelType(pixelType ? static_cast<int>(*pixelType) : commonPixelType(shapes));
  if (normalize) {
    combined.setShift(0.0);
    combined.setScale(1.0);
  }
  return combined;
}

} // namespace Kelvaris::ImageMath::internal
