#pragma once

#include "Core/Parameter.h"
#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"

#include <Eigen/Core>

#include <memory>
#include <mutex>
#include <utility>

namespace Kelvaris {

class GlImage;

/// Resamples images to another spacing over the same extent. With n pixels on an axis of spacing s, the output has
///
///     N = n s / target, rounded (halves up) and at least 1, pixels of spacing n s / N
///
/// so that the extent is kept exactly, and the spacing is the target wherever the target divides the extent. Samples
/// belong to pixel centres: output j lies at (j + 0.5) n / N - 0.5 in input pixels; positions beyond the outermost
/// centres take the outermost pixel. There is no low-pass filter before a coarser spacing. An axis that keeps its
/// number of pixels passes its samples through unchanged.
///
/// Parameter: `mode` (int, 0): Linear, between neighbouring pixels on all axes, or Nearest, the later one of two that
/// are equally near.
///
/// Any pixel type and number of components. The output keeps both, and matrix, modality, mask, shift and scale;
/// integers are rounded half away from zero. With a mask, a pixel is invalid where the input's nearest pixel is, and
/// repeats its components; invalid neighbours take no part in interpolation. An image that is a texture is resampled as
/// one, unless it has a mask or a pixel type that a texel doesn't hold exactly (32-bit integers, doubles); all others
/// in main memory, in double precision. The two agree to float rounding, so integers to one level.
class ImageResamplingAlgorithm : public Algorithm, public SequentialImageProcessor {
public:
  enum Mode : int { Linear = 0, Nearest = 1 };

  /// The input, which must outlive the algorithm, is for compute() and may be null, as may `reference`, an image whose
  /// spacing is the target until setTargetSpacing().
  ImageResamplingAlgorithm(const SharedImageSet* input, const SharedImage* reference);
  ~ImageResamplingAlgorithm() override;

  /// Along width, height and slices, in the unit of the images' spacing.
  void setTargetSpacing(const Eigen::Vector3d& spacing);

  void compute() override;
  OwningDataList takeOutput() override;

  /// The components are handed through. A null image and an empty list, with a logged error that holds the values, if
  /// no target spacing is set, if it or the image's own isn't positive and finite, if the output would have more than
  /// 2^31 - 1 pixels on an axis, or for an unknown mode. Throws std::runtime_error if the image has no pixels,
  /// std::length_error, std::bad_alloc or GL::Error if the output is too large for the memory or the textures.
  /// One image at a time; parameters may change meanwhile.
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override;

  Parameter<int> mode{"mode", Linear};

private:
  struct TextureProgram;

  mutable std::mutex m_mutex; ///< guards the parameters
  Eigen::Vector3d m_targetSpacing;
  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  std::unique_ptr<TextureProgram> m_program;
};

} // namespace Kelvaris
