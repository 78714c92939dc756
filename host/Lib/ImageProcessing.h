#pragma once

#include "Lib/SharedImage.h"

#include <Eigen/Core>

#include <memory>

/// Simple operations on the samples of images of any type. Positions and extents are in pixels, (x, y, z); the results
/// lie in main memory and keep all of the image that doesn't depend on its extent: spacing, mask, matrix, modality.
namespace Kelvaris::ImageProcessing {

/// The part of the image of extent `size` from `origin` on. Throws std::invalid_argument if it isn't within the image,
/// or empty.
std::unique_ptr<SharedImage> createCropped(const SharedImage& image, const Eigen::Vector3i& origin,
                                           const Eigen::Vector3i& size);

/// The image with so many pixels of value 0 before and after it along each axis. Throws std::invalid_argument for
/// negative numbers.
std::unique_ptr<SharedImage> createPadded(const SharedImage& image, const Eigen::Vector3i& before,
                                          const Eigen::Vector3i& after);

} // namespace Kelvaris::ImageProcessing
