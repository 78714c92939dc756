#include "viewer/view/LevelSlice.h"

#include "Lib/IntensityMask.h"
#include "support/Samples.h"
#include "viewer/view/Contents.h"
#include "viewer/view/PixelText.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

namespace Kelvaris::Viewer {
namespace {

using Law = DisplayMapping::Law;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN(), kInfinity = std::numeric_limits<double>::infinity();

/// The level before it is rounded.
double exactLevel(const MemImage& image, int x, int y, int slice, const DisplayMapping& mapping) {
  const ImageDescriptor& d = image.descriptor();
  double power = 0.0;
  for (int channel = 0; channel < d.channels(); ++channel)
    power += std::pow(image.valueAsDouble(x, y, slice, channel) / d.scale() - d.shift(), 2);
  double value = std::sqrt(power);
  if (d.channels() == 1) value = image.valueAsDouble(x, y, slice, 0) / d.scale() - d.shift();
  const double shown = mapping.law == Law::Linear ? value : 20.0 * std::log10(std::abs(value));
  return std::clamp((shown - mapping.low) / (mapping.high - mapping.low), 0.0, 1.0) * 255.0;
}

class LevelSliceOfType : public ::testing::TestWithParam<int> {};

TEST_P(LevelSliceOfType, HasTheLevelsOfTheFormula) {
  const struct {
    int channels;
    double shift, scale;
    DisplayMapping mapping;
  } table[] = {
      {1, 0.0, 1.0, {Law::Linear, 0.0, 255.0}},     {1, 0.0, 1.0, {Law::Linear, -31.7, 62.3}},
      {1, 12.5, 0.25, {Law::Linear, -100.0, 77.0}}, {1, 0.0, 1.0, {Law::Decibels, -20.0, 40.0}},
      {1, 5.0, 2.0, {Law::Decibels, 3.0, 31.0}},    {2, 0.0, 1.0, {Law::Decibels, -3.0, 41.5}},
      {2, 1.0, 4.0, {Law::Linear, 2.0, 30.0}},      {5, 0.0, 1.0, {Law::Decibels, 0.0, 47.0}},
      {1, 0.0, 1.0, {Law::Decibels, 39.0, 39.1}}, // steps closer than what the table of levels tells apart
  };
  for (const auto& c : table) {
    ImageDescriptor descriptor(GetParam(), 61, 43, 2, c.channels);
    descriptor.setShift(c.shift);
    descriptor.setScale(c.scale);
    const auto image = Tests::noiseImage(descriptor);
    const LevelSlice levels = mapSlice(*image, nullptr, 1, c.mapping);
    ASSERT_EQ(levels.samples.size(), 61U * 43U);
    EXPECT_TRUE(levels.valid.empty());
    double worst = 0.0;
    for (int y = 0; y < 43; ++y)
      for (int x = 0; x < 61; ++x) {
        const double level = levels.samples[static_cast<std::size_t>(y * 61 + x)];
        worst = std::max(worst, std::abs(level - exactLevel(*image, x, y, 1, c.mapping)));
        // The two ways to a level agree, ties within rounding aside.
        if (c.channels == 1) {
          EXPECT_NEAR(level, c.mapping.level(image->valueAsDouble(x, y, 1, 0) / c.scale - c.shift), 1.0);
        }
      }
    EXPECT_LE(worst, 0.5 + 1e-9) << descriptor.toString() << ", " << c.mapping.low << " to " << c.mapping.high;
  }
}

INSTANTIATE_TEST_SUITE_P(Types, LevelSliceOfType,
                         ::testing::Values(PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelUInt32,
                                           PixelFloat, PixelDouble, PixelHalf),
                         [](const auto& tested) { return ImageDescriptor::pixelTypeName(tested.param); });

TEST(LevelSlice, ValuesOfAllMagnitudesHaveTheirDecibels) {
  // 20 log10 of the values is their column: from -1500 to 1500 dB in steps of a tenth.
  const auto image = Tests::imageOf(ImageDescriptor(PixelDouble, 30001, 1),
                                    [](int x, int, int, int) { return std::pow(10.0, (x - 15000) / 200.0); });
  for (const double low : {-1500.0, -100.0, 0.0, 700.0}) {
    const DisplayMapping mapping{Law::Decibels, low, low + 60.0};
    const LevelSlice levels = mapSlice(*image, nullptr, 0, mapping);
    for (int x = 0; x <= 30000; ++x)
      ASSERT_NEAR(levels.samples[static_cast<std::size_t>(x)],
                  std::clamp(255.0 * (0.1 * (x - 15000) - low) / 60.0, 0.0, 255.0), 0.5 + 1e-6)
          << x << " from " << low;
  }
}

TEST(LevelSlice, EndsOfTheWindowAndWhatIsNoNumber) {
  const std::vector<double> values = {-kInfinity, -1.0, 0.0, 1.0, kInfinity, kNaN, -0.0};
  const auto image = Tests::imageOf(ImageDescriptor(PixelFloat, 7, 1),
                                    [&](int x, int, int, int) { return values[static_cast<std::size_t>(x)]; });
  const LevelSlice linear = mapSlice(*image, nullptr, 0, {Law::Linear, -1.0, 1.0});
  EXPECT_EQ(linear.samples, (std::vector<unsigned char>{0, 0, 128, 255, 255, 0, 128}));
  EXPECT_EQ(linear.valid, (std::vector<unsigned char>{1, 1, 1, 1, 1, 0, 1}));
  const LevelSlice decibels = mapSlice(*image, nullptr, 0, {Law::Decibels, -60.0, 0.0});
  EXPECT_EQ(decibels.samples, (std::vector<unsigned char>{255, 255, 0, 255, 255, 0, 0}));
  EXPECT_EQ(decibels.valid, linear.valid);
}

TEST(LevelSlice, MaskedPixelsAndColoursStayWhatTheyAre) {
  const auto signal = Tests::noiseImage(ImageDescriptor(PixelInt16, 9, 7, 3), 5);
  const IntensityMask mask(PixelInt16, signal->valueAsDouble(4, 2, 1, 0));
  const LevelSlice levels = mapSlice(*signal, &mask, 1, {Law::Linear, -100.0, 100.0});
  for (int y = 0; y < 7; ++y)
    for (int x = 0; x < 9; ++x)
      EXPECT_EQ(levels.valid[static_cast<std::size_t>(9 * y + x)], signal->valueAsDouble(x, y, 1, 0) != mask.value());
  const auto colors = Tests::noiseImage(ImageDescriptor(PixelUInt8, 5, 4, 2, 3));
  const LevelSlice copied = mapSlice(*colors, nullptr, 1, {Law::Decibels, 0.0, 1.0});
  EXPECT_EQ(copied.channels, 3);
  const auto* second = static_cast<const unsigned char*>(colors->data()) + 60;
  EXPECT_EQ(copied.samples, std::vector<unsigned char>(second, second + 60));
}

TEST(Contents, TypeAndValuesTellHowTheyAreShownAtFirst) {
  const auto ramp = [](double from, double to) {
    return [=](int x, int, int, int channel) { return channel > 0 ? 0.0 : from + (to - from) * x / 1000.0; };
  };
  const struct {
    const char* what;
    int type, channels;
    double from, to;
    Contents contents;
    Law law; ///< of the first mapping; the other two are linear
    std::array<double, 2> first, automatic, full;
  } table[] = {
      {"levels", PixelUInt8, 1, 20, 120, Contents::Levels, Law::Linear, {0, 255}, {20, 119}, {0, 255}},
      {"envelope", PixelFloat, 1, 0, 1000, Contents::Amplitude, Law::Decibels, {0, 60}, {5, 995}, {0, 1000}},
      {"RF", PixelInt16, 1, -1000, 500, Contents::Signal, Law::Linear, {-992, 992}, {-992, 992}, {-32768, 32767}},
      {"IQ", PixelFloat, 2, -1000, 1000, Contents::Iq, Law::Decibels, {0, 60}, {5, 995}, {0, 1000}},
      {"dB", PixelFloat, 1, -50, 0, Contents::Decibels, Law::Linear, {-50, 0}, {-49.75, -0.25}, {-50, 0}},
      {"nothing", PixelFloat, 1, 0, 0, Contents::Amplitude, Law::Decibels, {-60, 0}, {-0.5, 0.5}, {-0.5, 0.5}},
  };
  for (const auto& c : table) {
    const auto image = Tests::imageOf(ImageDescriptor(c.type, 1001, 1, 1, c.channels), ramp(c.from, c.to));
    const SliceStatistics statistics(*image, nullptr, 0);
    const Contents contents = contentsOf(image->descriptor(), statistics);
    EXPECT_EQ(contents, c.contents) << c.what;
    const auto expectNear = [&](const DisplayMapping& mapping, Law law, const std::array<double, 2>& range) {
      EXPECT_EQ(mapping.law, law) << c.what;
      const double tolerance = 0.003 * (range[1] - range[0]); // a value of the ramp more or less
      EXPECT_NEAR(mapping.low, range[0], tolerance) << c.what;
      EXPECT_NEAR(mapping.high, range[1], tolerance) << c.what;
    };
    expectNear(firstMapping(contents, statistics), c.law, c.first);
    expectNear(automaticMapping(Law::Linear, contents, statistics), Law::Linear, c.automatic);
    expectNear(fullMapping(Law::Linear, image->descriptor(), statistics), Law::Linear, c.full);
  }
}

TEST(SliceStatistics, MaskedPixelsAndOtherSlicesDoNotCount) {
  const auto image = Tests::imageOf(ImageDescriptor(PixelInt16, 10, 10, 2), [](int x, int y, int z, int) {
    return z == 0 ? 9999 : y < 5 ? -32768 : x;
  });
  const IntensityMask mask(PixelInt16, -32768.0);
  const SliceStatistics statistics(*image, &mask, 1);
  EXPECT_EQ(statistics.least(), 0.0);
  EXPECT_EQ(statistics.most(), 9.0);
  EXPECT_EQ(statistics.quantile(0.0), 0.0);
}

TEST(PixelText, TellsSamplesInWords) {
  const struct {
    ImageDescriptor descriptor;
    double shift, scale;
    std::vector<double> samples;
    Contents contents;
    const char* text;
  } table[] = {
      {{PixelUInt8, 1, 1}, 0, 1, {123}, Contents::Levels, "123"},
      {{PixelInt32, 1, 1}, 0, 1, {-1234567890}, Contents::Signal, "-1234567890"},
      {{PixelFloat, 1, 1}, 0, 1, {-12.25}, Contents::Decibels, "-12.25 dB"},
      {{PixelInt16, 1, 1}, 2, 8, {100}, Contents::Signal, "10.5 (stored: 100)"},
      {{PixelFloat, 1, 1, 1, 2}, 0, 1, {3, -4}, Contents::Iq, "I 3, Q -4, magnitude 5 (13.98 dB)"},
      {{PixelUInt8, 1, 1, 1, 3}, 0, 1, {9, 8, 7}, Contents::Color, "red 9, green 8, blue 7"},
      {{PixelInt16, 1, 1}, 0, 1, {-32768}, Contents::Signal, "masked"},
  };
  const IntensityMask mask(PixelInt16, -32768.0);
  for (auto c : table) {
    c.descriptor.setShift(c.shift);
    c.descriptor.setScale(c.scale);
    const auto image = Tests::imageOf(
        c.descriptor, [&](int, int, int, int channel) { return c.samples[static_cast<std::size_t>(channel)]; });
    EXPECT_EQ(pixelText(*image, &mask, c.contents, 0, 0, 0).toStdString(), c.text);
  }
}

} // namespace
} // namespace Kelvaris::Viewer
