#include "simulation/LayerSum.h"

#include "imagemath/ImageMath.h"

namespace Kelvaris::US {

std::unique_ptr<SharedImage> noiseAndLayers(const ImageDescriptor& descriptor, float deviation, int frame,
                                            std::span<const std::shared_ptr<SharedImage>> layers, int strategy) {
  using namespace ImageMath;
  auto image = std::make_unique<SharedImage>(descriptor);
  Array<SharedImage> sum(*image);
  sum = DeviceStrategyWrapper(makeNoise(*image, NoiseType::Gaussian, 0.0f, deviation, frame), strategy);
  for (const std::shared_ptr<SharedImage>& layer : layers)
    sum = DeviceStrategyWrapper(sum + Array<const SharedImage, float>(*layer), strategy);
  return image;
}

void addLayer(SharedImage& image, const SharedImage& layer, float amplitude, int strategy) {
  using namespace ImageMath;
  Array<SharedImage> sum(image);
  sum = DeviceStrategyWrapper(sum + amplitude * Array<const SharedImage, float>(layer), strategy);
}

} // namespace Kelvaris::US
