#include "Lib/IntensityMask.h"

#include "Lib/MemImage.h"

namespace Kelvaris {

void IntensityMask::evaluate(const MemImage& image, int x, int y, int z, int count, unsigned char* valid) const {
  const int channels = image.channels();
  dispatchPixelType(image.descriptor().pixelType(), [&]<typename T>() {
    const T* sample = static_cast<const T*>(image.data()) + image.index(x, y, z, 0);
    for (int i = 0; i < count; ++i) {
      bool masked = false;
      for (int channel = 0; channel < channels; ++channel)
        masked |= isMasked(static_cast<double>(*sample++));
      valid[i] = masked ? 0 : 1;
    }
  });
}

} // namespace Kelvaris
