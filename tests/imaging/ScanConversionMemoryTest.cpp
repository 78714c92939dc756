#include "imaging/ScanConversionCases.h"

#include "GL/RequireGL.h"
#include "US/GeometryCases.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>

namespace Kelvaris::US {
namespace {

using namespace Tests;

/// A figure of /proc/self/status in bytes; nothing where there is no such line.
std::optional<double> processMemory(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(key + ":")) return std::stod(line.substr(key.size() + 1)) * 1024.0;
  return std::nullopt;
}

/// Lets the peak begin anew from what is resident now. False where the system can't.
bool resetPeak() {
  std::ofstream references("/proc/self/clear_refs");
  return (references << "5" << std::flush).good();
}

TEST_F(ScanConversion, OfASetTakesAFewFramesBesideInputAndOutput) {
  KELVARIS_REQUIRE_GL();
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
  if (!resetPeak() || !processMemory("VmHWM")) GTEST_SKIP() << "the system doesn't tell a process its peak memory";
  const double before = *processMemory("VmRSS");
  if (*processMemory("VmHWM") > before + frame) GTEST_SKIP() << "the peak can't be reset";
  algorithm.compute();
  ASSERT_EQ(algorithm.status(), Algorithm::Success);
  const double frames = (*processMemory("VmHWM") - before) / frame;
  RecordProperty("frames", std::to_string(frames));
  EXPECT_GT(frames, 0.9 * images) << "the output itself";
  EXPECT_LT(frames, images + 8) << "a texture holds 8-bit pixels in four times their size";
}

} // namespace
} // namespace Kelvaris::US
