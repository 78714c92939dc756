#include "imaging/ScanConversionCases.h"

#include "US/GeometryCases.h"

#include <fstream>

namespace Kelvaris::US {
namespace {

using namespace Tests;

/// The most memory that this process has held, in bytes.
double peakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) * 1024.0;
  throw std::runtime_error("the system doesn't tell a process its peak memory");
}

TEST_F(ScanConversionWithGL, OfASetTakesAFewFramesBesideInputAndOutput) {
  SharedImageSet set;
  set.setModality(Data::Ultrasound);
  set.components() = componentsOf(*convexCase(28.5, 60, 120).geometry);
  const auto fill = [&](int images) {
    set.removeImages();
    for (int i = 0; i < images; ++i)
      set.add(
          share(imageOf(prescanDescriptor(PixelUInt8, 300, 320, 120), [](int x, int, int, int) { return x % 99; })));
  };
  ScanConversionUltrafastImaging algorithm(&set);
  fill(2); // the driver's own memory
  algorithm.compute();
  ASSERT_EQ(algorithm.status(), Algorithm::Success);
  const auto first = algorithm.takeOutput().extract<SharedImageSet>();
  const auto frame = static_cast<double>(first->get(0).descriptor().byteSize());

  constexpr int images = 60;
  fill(images);
  const double before = peakMemory();
  algorithm.compute();
  ASSERT_EQ(algorithm.status(), Algorithm::Success);
  const double frames = (peakMemory() - before) / frame;
  EXPECT_GT(frames, 0.9 * images) << "the output itself: the peak is that of this run";
  EXPECT_LT(frames, images + 8) << "a texture holds 8-bit pixels in four times their size";
}

} // namespace
} // namespace Kelvaris::US
