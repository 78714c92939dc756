#include "gpu/ConvolutionFilter1D.h"

#include "CUDA/Utils.h"
#include "Core/Log.h"
#include "gpu/ConvolutionFilter1DLaunch.h"

namespace Kelvaris::US::GPU {
namespace {

template <typename T> void launch(const ConvolutionFilter1DArguments& arguments, int axis) {
#if KELVARIS_HAVE_CUDA
  if (CUDA::Device::isCuda()) {
    const CUDA::KernelBuffer& o = arguments.output;
    const auto shape = CUDA::Utils::blockSizeForImage(CUDA::Dim3{o.width, o.height, o.slices});
    CUDA::Utils::printError(convolveOnCuda<T>(shape, arguments, axis));
    return;
  }
#endif
  convolveOnCpu<T>(arguments, axis);
}

const TypedImage<float>& withDevice(const TypedImage<float>& kernel) {
  CUDA::Utils::PrimaryContext::ensureCurrent();
  return kernel;
}

} // namespace

ConvolutionFilter1D::ConvolutionFilter1D(const TypedImage<float>& kernel) : m_filter(withDevice(kernel)) {}

std::shared_ptr<SharedImage> ConvolutionFilter1D::apply(const SharedImage& image, int axis) const {
  CUDA::Utils::PrimaryContext::ensureCurrent();
  const auto input = image.sharedCustom<CUDA::DeviceBufferImage>();
  std::shared_ptr<SharedImage> result = image.clone(4);
  const auto output = std::make_shared<CUDA::DeviceBufferImage>(input->descriptor());
  if (!convolutionFilter1D(*input, *output, m_filter, axis)) {
    Log::error("", "Failed to apply convolution filter 1D");
    return nullptr;
  }
  result->assign(output);
  return result;
}

bool convolutionFilter1D(const CUDA::DeviceBufferImage& input, CUDA::DeviceBufferImage& output,
                         const CUDA::DeviceBufferImage& filter, int axis) {
  const ImageDescriptor& from = input.descriptor();
  const ImageDescriptor& to = output.descriptor();
  const int rank = to.slices() > 1 ? 3 : to.height() > 1 ? 2 : 1;
  if (axis < 0 || axis >= rank) return false;
  if (from.dimensions() != to.dimensions() || from.pixelType() != to.pixelType() ||
      filter.descriptor().pixelType() != PixelFloat)
    return false;

  const ConvolutionFilter1DArguments arguments{input.kernelBuffer(), output.kernelBuffer(), filter.kernelBuffer()};
  switch (to.pixelType()) {
  case PixelInt8:
    launch<char>(arguments, axis);
    break;
  case PixelUInt8:
    launch<unsigned char>(arguments, axis);
    break;
  case PixelInt16:
    launch<short>(arguments, axis);
    break;
  case PixelUInt16:
    launch<unsigned short>(arguments, axis);
    break;
  case PixelInt32:
    launch<int>(arguments, axis);
    break;
  case PixelUInt32:
    launch<unsigned int>(arguments, axis);
    break;
  case PixelFloat:
  case PixelHalf:
    launch<float>(arguments, axis);
    break;
  default:
    break;
  }
  return true;
}

} // namespace Kelvaris::US::GPU
