#pragma once

#include "CUDA/DeviceBufferImage.h"
#include "Lib/SharedImage.h"

#include <memory>

namespace Kelvaris::US::GPU {

/// An FIR filter on the device that runs along one axis of images. Immutable: may be used from several threads.
class ConvolutionFilter1D {
public:
  /// Uploads the taps, which lie along the width of `kernel`. Throws std::invalid_argument if there are none,
  /// CUDA::Error or std::bad_alloc if device memory is short.
  explicit ConvolutionFilter1D(const TypedImage<float>& kernel);

  /// The image filtered along `axis` (0 width, 1 height, 2 slices), with everything of `image` but its pixels:
  ///
  ///     out(c) = sum_k in(c + k) h(k + L / 2),   -L / 2 <= k < L - L / 2, L / 2 truncated
  ///
  /// Terms outside the image are left out. Integer pixels of every width are rounded half away from zero and clamped to
  /// -32768 ... 32767; narrower types then keep the low bits, and unsigned ones those of negative results. Of several
  /// components the first is filtered, and the others of the result are undefined. So is a result of doubles, for which
  /// there is no kernel.
  ///
  /// Null, with a logged error, if the image is flat along `axis` and all later ones (axis 2 needs two slices, axis 1
  /// two slices or a height of 2) or there is no such axis. Throws std::runtime_error if `image` has no pixels,
  /// CUDA::Error or std::bad_alloc if device memory is short. Errors of the launch go to the log.
  std::shared_ptr<SharedImage> apply(const SharedImage& image, int axis) const;

private:
  CUDA::DeviceBufferImage m_filter; ///< L x 1 x 1, float
};

/// Filters `input` into `output`, as ConvolutionFilter1D::apply() does. False, with nothing done, if the output has no
/// such axis (see there), if the images differ in extent or pixel type, or if `filter` is not one of floats. True
/// otherwise, also where there is no kernel for the pixel type or the launch fails, which goes to the log.
bool convolutionFilter1D(const CUDA::DeviceBufferImage& input, CUDA::DeviceBufferImage& output,
                         const CUDA::DeviceBufferImage& filter, int axis);

} // namespace Kelvaris::US::GPU
