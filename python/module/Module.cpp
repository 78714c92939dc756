#include "module/Algorithms.h"
#include "module/Arrays.h"
#include "module/Files.h"
#include "module/Images.h"
#include "module/Log.h"
#include "module/LongWork.h"
#include "module/Streams.h"

namespace Kelvaris::Python {

PYBIND11_MODULE(kelvaris, module) {
  module.doc() = "Ultrasound image formation: images, files, algorithms and streams of the host and its plugins.\n\n"
                 "Arrays of images have the shape (slices, height, width, channels).";
  pybind11::options options;
  options.disable_function_signatures(); // kelvaris.pyi has them in full
  bindArrays(module);
  bindLog(module);
  bindLongWork(module);
  bindImages(module);
  bindFiles(module);
  bindStreams(module);
  bindAlgorithms(module);
}

} // namespace Kelvaris::Python
