#include "processing/IqDemodulation.h"

#include "GL/GlImage.h"
#include "GL/RequireGL.h"
#include "processing/SignalProcessing.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace Kelvaris::US {
namespace {

using Complex = std::complex<double>;

/// Noise that uses a good part of the pixel type's range.
std::shared_ptr<SharedImage> noise(const ImageDescriptor& descriptor) {
  std::shared_ptr<MemImage> image = MemImage::create(descriptor);
  std::mt19937 random(17);
  dispatchPixelType(descriptor.pixelType(), [&]<typename T>() {
    std::uniform_real_distribution<double> uniform(std::is_unsigned_v<T> ? 0.0 : -100.0, 100.0);
    std::generate_n(static_cast<T*>(image->data()), descriptor.elementCount(),
                    [&] { return static_cast<T>(uniform(random)); });
  });
  return std::make_shared<SharedImage>(image);
}

/// What the pixel type keeps of a value.
double stored(double value, int pixelType) {
  dispatchPixelType(pixelType, [&]<typename T>() {
    if constexpr (std::is_integral_v<T>)
      value = std::clamp(std::round(value), static_cast<double>(std::numeric_limits<T>::lowest()),
                         static_cast<double>(std::numeric_limits<T>::max()));
  });
  return value;
}

struct Settings {
  double fs = 40.0, fd = 5.0;
  int factor = 1;
  double ratio = 1.0;
  int taps = 51;
};

std::shared_ptr<SharedImage> demodulated(const IqDemodulation& demodulation, const SharedImage& image,
                                         const Settings& s) {
  return demodulation.demodulate(image, s.fs, s.fd, s.factor, s.ratio, s.taps);
}

/// Mixing, filter and resampling of one column, written out in double precision.
std::vector<Complex> reference(const MemImage& image, int x, int z, const Settings& s) {
  const int n = image.height(), pixelType = image.descriptor().pixelType();
  std::vector<Complex> mixed, filtered, output;
  for (int y = 0; y < n; ++y)
    mixed.push_back(image.valueAsDouble(x, y, z, 0) * std::polar(2.0, -2.0 * std::numbers::pi * s.fd * y / s.fs));
  const auto taps = Signal::createFirFilter(Signal::FilterType::Lowpass, static_cast<float>(s.fs), 0.0f,
                                            static_cast<float>(s.fd * s.ratio), s.taps, 1);
  for (int y = 0; y < n; ++y) {
    Complex sum;
    for (int k = -(s.taps / 2); k <= s.taps / 2; ++k)
      if (y - k >= 0 && y - k < n)
        sum += static_cast<double>(taps[static_cast<std::size_t>(k + s.taps / 2)]) *
               mixed[static_cast<std::size_t>(y - k)];
    filtered.emplace_back(stored(sum.real(), pixelType), stored(sum.imag(), pixelType));
  }
  const int rows = std::max(1, static_cast<int>(std::floor(static_cast<double>(n) / s.factor + 0.5)));
  for (int j = 0; j < rows; ++j) {
    const double place = std::clamp((j + 0.5) * n / rows - 0.5, 0.0, n - 1.0), below = std::floor(place);
    const Complex a = filtered[static_cast<std::size_t>(below)],
                  b = filtered[static_cast<std::size_t>(std::min(below + 1.0, n - 1.0))];
    const Complex value = a + (place - below) * (b - a);
    output.emplace_back(stored(value.real(), pixelType), stored(value.imag(), pixelType));
  }
  return output;
}

TEST(IqDemodulation, AgreesWithMixingFilterAndResamplingInDoublePrecision) {
  KELVARIS_REQUIRE_GL();
  const struct {
    const char* what;
    int pixelType;
    Eigen::Vector3i extent;
    Settings settings;
  } cases[] = {
      {"columns", PixelFloat, {5, 120, 1}, {}},
      {"one column", PixelFloat, {1, 120, 1}, {}},
      {"a volume", PixelFloat, {3, 60, 4}, {}},
      {"one row", PixelFloat, {4, 1, 1}, {}},
      {"half the rows", PixelFloat, {3, 120, 1}, {.factor = 2}},
      {"a third, of a number that 3 doesn't divide", PixelFloat, {3, 100, 1}, {.factor = 3}},
      {"another cut-off", PixelFloat, {3, 100, 1}, {.ratio = 0.4, .taps = 101}},
      {"a filter longer than the columns", PixelFloat, {3, 20, 1}, {.taps = 101}},
      {"no mixing: the filter's cut-off is 0", PixelFloat, {2, 60, 1}, {.fd = 0.0}},
      {"int16", PixelInt16, {3, 120, 1}, {.factor = 2}},
      {"int16, one column", PixelInt16, {1, 90, 1}, {}},
      {"int8 saturates", PixelInt8, {3, 90, 1}, {}},
      {"uint8 loses what is negative", PixelUInt8, {3, 90, 1}, {}},
      {"uint16", PixelUInt16, {3, 90, 2}, {}},
      {"int32, mixed in main memory", PixelInt32, {3, 90, 1}, {.factor = 2}},
      {"uint32", PixelUInt32, {1, 90, 1}, {}},
      {"double", PixelDouble, {3, 90, 1}, {.factor = 2}},
      {"half", PixelHalf, {3, 90, 1}, {}},
  };
  for (const auto& c : cases)
    for (const bool asTexture : {false, true}) {
      SCOPED_TRACE(c.what);
      ImageDescriptor descriptor(c.pixelType, c.extent.x(), c.extent.y(), c.extent.z());
      descriptor.setSpacing({0.3, 0.02, 0.5});
      const auto image = noise(descriptor);
      const auto mem = image->mem();
      if (asTexture) image->assign(std::make_shared<GlImage>(*mem));
      image->setMatrix(Eigen::Matrix4d::Identity() * 3.0);
      const auto output = demodulated(IqDemodulation(), *image, c.settings);
      ASSERT_NE(output, nullptr);
      EXPECT_EQ(output->descriptor().pixelType(), c.pixelType);
      EXPECT_EQ(output->descriptor().channels(), 2);
      EXPECT_EQ(output->matrix(), image->matrix());
      EXPECT_EQ(output->descriptor().spacing().x(), 0.3);
      EXPECT_EQ(output->descriptor().spacing().z(), 0.5);

      const bool isFloat = c.pixelType == PixelFloat || c.pixelType == PixelDouble;
      const double tolerance = isFloat ? 2e-3 : c.pixelType == PixelHalf ? 0.2 : 1.0;
      const auto pixels = output->mem();
      double worst = 0.0;
      for (int z = 0; z < c.extent.z(); ++z)
        for (int x = 0; x < c.extent.x(); ++x) {
          const std::vector<Complex> expected = reference(*mem, x, z, c.settings);
          ASSERT_EQ(output->descriptor().height(), static_cast<int>(expected.size()));
          EXPECT_NEAR(output->descriptor().spacing().y() * output->descriptor().height(), 0.02 * c.extent.y(), 1e-12);
          for (int y = 0; y < pixels->height(); ++y) {
            const Complex value(pixels->valueAsDouble(x, y, z, 0), pixels->valueAsDouble(x, y, z, 1));
            const Complex error = value - expected[static_cast<std::size_t>(y)];
            worst = std::max({worst, std::abs(error.real()), std::abs(error.imag())});
          }
        }
      EXPECT_LE(worst, tolerance);
    }
}

TEST(IqDemodulation, KeepsItsSignalsAsLongAsNothingChanges) {
  KELVARIS_REQUIRE_GL();
  const IqDemodulation demodulation;
  EXPECT_EQ(demodulation.cachedSignals(), nullptr);
  const auto image = noise(ImageDescriptor(PixelFloat, 3, 60));
  const Settings base;
  const struct {
    const char* what;
    Settings settings;
    std::shared_ptr<SharedImage> image;
    bool isNew;
  } steps[] = {
      {"the first call", base, image, true},
      {"the same again", base, image, false},
      {"another width, other slices and type", base, noise(ImageDescriptor(PixelInt16, 7, 60, 2)), false},
      {"another factor", {.factor = 3}, image, false},
      {"another height", base, noise(ImageDescriptor(PixelFloat, 3, 61)), true},
      {"the first height", base, image, true},
      {"filter length", {.taps = 31}, image, true},
      {"sampling frequency", {.fs = 41.0, .taps = 31}, image, true},
      {"demodulation frequency", {.fs = 41.0, .fd = 5.5, .taps = 31}, image, true},
      {"cut-off", {.fs = 41.0, .fd = 5.5, .ratio = 0.9, .taps = 31}, image, true},
      {"in the last digit", {.fs = std::nextafter(41.0, 42.0), .fd = 5.5, .ratio = 0.9, .taps = 31}, image, true},
  };
  for (const auto& step : steps) {
    const auto* const before = demodulation.cachedSignals();
    const void* const filter = before ? before->filter.get() : nullptr;
    const void* const resampler = before ? before->resampler.get() : nullptr;
    const void* const signal = before ? before->signal.get() : nullptr;
    demodulated(demodulation, *step.image, step.settings);
    const auto& after = *demodulation.cachedSignals();
    EXPECT_EQ(after.filter.get() != filter, step.isNew) << step.what;
    EXPECT_EQ(after.resampler.get() != resampler, step.isNew) << step.what;
    EXPECT_EQ(after.signal.get() != signal, step.isNew) << step.what;
    EXPECT_EQ(after.filterLength, step.settings.taps);
    EXPECT_EQ(after.samplingFrequency, step.settings.fs);
    EXPECT_EQ(after.signal->descriptor().dimensions(), Eigen::Vector3i(1, step.image->descriptor().height(), 1));
    EXPECT_TRUE(after.resampler->isSequentialMode());
  }
  const auto signal = [&](double fd) {
    demodulated(demodulation, *image, {.fd = fd});
    return demodulation.cachedSignals()->signal->mem();
  };
  const auto quarter = signal(10.0); // a quarter of the sampling frequency: 2, -2i, -2, 2i
  EXPECT_NEAR(quarter->valueAsDouble(0, 1, 0, 0), 0.0, 1e-6);
  EXPECT_NEAR(quarter->valueAsDouble(0, 1, 0, 1), -2.0, 1e-6);
  const auto constant = signal(0.0);
  for (const int y : {0, 1, 59}) {
    EXPECT_EQ(constant->valueAsDouble(0, y, 0, 0), 2.0);
    EXPECT_EQ(constant->valueAsDouble(0, y, 0, 1), 0.0);
  }
}

TEST(IqDemodulation, EveryImageStartsWithPhaseZero) {
  KELVARIS_REQUIRE_GL();
  const IqDemodulation demodulation;
  auto tone = std::make_shared<TypedImage<float>>(2, 200);
  for (int y = 0; y < 200; ++y)
    for (int x = 0; x < 2; ++x)
      tone->setValue(static_cast<float>(3.0 * std::cos(2.0 * std::numbers::pi * 5.0 * y / 40.0 + 0.7 * x)), x, y);
  for (int frame = 0; frame < 2; ++frame) {
    const auto iq = demodulated(demodulation, SharedImage(tone), {})->mem();
    const auto at = [&](int x) { return Complex(iq->valueAsDouble(x, 100, 0, 0), iq->valueAsDouble(x, 100, 0, 1)); };
    EXPECT_NEAR(std::arg(at(0)), 0.0, 0.02);
    EXPECT_NEAR(std::arg(at(1)), 0.7, 0.02);
  }
}

TEST(IqDemodulation, SaysWhatIsWrong) {
  KELVARIS_REQUIRE_GL();
  const IqDemodulation demodulation;
  const auto messageOf = [](const std::function<void()>& call) -> std::string {
    try {
      call();
    } catch (const std::exception& error) {
      return error.what();
    }
    return "none";
  };
  const auto image = noise(ImageDescriptor(PixelFloat, 3, 60));
  EXPECT_EQ(messageOf([&] { demodulated(demodulation, *image, {.taps = 50}); }),
            "Even filter length is not supported. Given length: 50");
  for (const int channels : {2, 3})
    EXPECT_EQ(
        messageOf([&] { demodulated(demodulation, *noise(ImageDescriptor(PixelFloat, 3, 60, 1, channels)), {}); }),
        "IQ demodulation takes images of 1 channel, not of " + std::to_string(channels));
  for (const int factor : {0, -2}) {
    const Tests::ExpectedLog log;
    EXPECT_EQ(demodulated(demodulation, *image, {.factor = factor}), nullptr);
    EXPECT_TRUE(log.contains("The target spacing (1, " + std::to_string(factor) + ", 1) must be positive and finite"));
  }
}

} // namespace
} // namespace Kelvaris::US
