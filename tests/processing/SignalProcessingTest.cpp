#include "processing/SignalProcessing.h"

#include "support/ErrorOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <stdexcept>

namespace Kelvaris::US::Signal {
namespace {

constexpr double pi = std::numbers::pi;

double sinc(double x) {
  return x == 0.0 ? 1.0 : std::sin(pi * x) / (pi * x);
}

/// The window of a kernel of odd length: two full periods of the cosine, so both end taps carry the weight 1, not 0.08.
double windowWeight(int i, int length) {
  const int half = (length - 1) / 2;
  return 0.54 + 0.46 * std::cos(2.0 * pi * (i - half) / half);
}

struct Design {
  FilterType type;
  double lower, upper; // Hz
};

/// The ideal response at distance t from the centre, by sinc functions alone.
double idealResponse(const Design& d, double samplingFrequency, int t) {
  const auto lowpass = [&](double cutoff) {
    const double c = cutoff / samplingFrequency;
    return 2.0 * c * sinc(2.0 * c * t);
  };
  switch (d.type) {
  case FilterType::Lowpass:
    return lowpass(d.upper);
  case FilterType::Highpass:
    return (t == 0 ? 1.0 : 0.0) - lowpass(d.lower);
  default:
    return lowpass(d.upper) - lowpass(d.lower);
  }
}

constexpr Design designs[] = {
    {FilterType::Lowpass, 9e6, 6e6}, {FilterType::Highpass, 6e6, 2e6}, {FilterType::Bandpass, 4e6, 12e6}};

TEST(FirFilter, TapsFollowTheClosedForm) {
  constexpr double fs = 40e6;
  for (const Design& d : designs)
    for (const int length : {3, 51, 101}) {
      const auto filter =
          createFirFilter(d.type, float(fs), static_cast<float>(d.lower), static_cast<float>(d.upper), length, 1);
      ASSERT_EQ(filter.size(), static_cast<std::size_t>(length));
      for (int i = 0; i < length; ++i) {
        const double expected = idealResponse(d, fs, i - length / 2) * windowWeight(i, length);
        EXPECT_NEAR(filter[static_cast<std::size_t>(i)], expected, 1e-7) << "tap " << i << " of " << length;
      }
    }
}

TEST(FirFilter, PassesItsBandAndStopsTheRest) {
  constexpr double fs = 40e6, transition = 2e6;
  for (const Design& d : designs) {
    const auto filter =
        createFirFilter(d.type, float(fs), static_cast<float>(d.lower), static_cast<float>(d.upper), 101, 0);
    for (double f = 0.0; f <= fs / 2.0; f += 0.1e6) {
      const double aboveLower = d.type == FilterType::Lowpass ? fs : f - d.lower;
      const double belowUpper = d.type == FilterType::Highpass ? fs : d.upper - f;
      const double inside = std::min(aboveLower, belowUpper);
      if (std::abs(inside) <= transition) continue;
      std::complex<double> gain = 0.0;
      for (std::size_t i = 0; i < filter.size(); ++i)
        gain += std::polar<double>(filter[i], -2.0 * pi * f / fs * static_cast<double>(i));
      EXPECT_NEAR(std::abs(gain), inside > 0.0 ? 1.0 : 0.0, 0.05) << f;
    }
  }
}

TEST(FirFilter, LiesAlongItsAxis) {
  for (int axis = 0; axis < 3; ++axis) {
    const auto filter = createFirFilter(FilterType::Lowpass, 4.0f, 0.0f, 1.0f, 51, axis);
    Eigen::Vector3i dimensions(1, 1, 1);
    Eigen::Vector3d spacing(1.0, 1.0, 1.0);
    dimensions[axis] = 51;
    spacing[axis] = 0.25;
    EXPECT_EQ(filter.descriptor().dimensions(), dimensions);
    EXPECT_EQ(filter.descriptor().spacing(), spacing);
    EXPECT_EQ(filter.channels(), 1);
    EXPECT_EQ(filter[25], 0.5f); // window weight 1 at the centre
  }
}

TEST(FirFilter, DegenerateInput) {
  for (const int length : {50, 0, -2})
    EXPECT_EQ(Tests::errorOf<std::invalid_argument>(
                  [&] { createFirFilter(FilterType::Bandpass, 40.0f, 1.0f, 2.0f, length, 0); }),
              "Even filter length is not supported. Given length: " + std::to_string(length));
  EXPECT_THROW(createFirFilter(FilterType::Lowpass, 40.0f, 1.0f, 2.0f, 51, 3), std::invalid_argument);

  const auto single = createFirFilter(FilterType::Lowpass, 40.0f, 0.0f, 2.0f, 1, 0);
  ASSERT_EQ(single.size(), 1u);
  EXPECT_TRUE(std::isnan(single[0]));

  const auto unknown = createFirFilter(static_cast<FilterType>(7), 40.0f, 1.0f, 2.0f, 5, 2);
  EXPECT_EQ(unknown.slices(), 5);

  TypedImage<float> empty(0, 1);
  idealLowpass(0.1, empty);
  applyHammingWindow(empty);
  EXPECT_EQ(empty.size(), 0u);
}

TEST(Sinusoid, PhaseIsFormedInSinglePrecision) {
  constexpr float fs = 31.25e6f, f = -5.208e6f, amplitude = 2.0f, phase = 0.3f;
  constexpr int length = 5000;
  const auto complex = sinusoidComplex(fs, f, length, amplitude, phase, 0);
  const auto real = sinusoidReal(fs, f, length, amplitude, phase, 0);
  double worstAgainstExact = 0.0;
  for (int i = 0; i < length; ++i) {
    volatile float x = static_cast<float>(i) / fs; // each step is stored, so that no wider intermediate survives
    x = x * ((f + f) * 3.1415927f);
    x = x + phase;
    const double single = x;
    const auto k = static_cast<std::size_t>(i);
    ASSERT_EQ(complex[2 * k], static_cast<float>(2.0 * std::cos(single))) << i;
    ASSERT_EQ(complex[2 * k + 1], static_cast<float>(2.0 * std::sin(single))) << i;
    ASSERT_EQ(real[k], complex[2 * k]) << i;
    const double exact = 2.0 * std::cos(2.0 * pi * double(f) / double(fs) * i + double(phase));
    worstAgainstExact = std::max(worstAgainstExact, std::abs(exact - double(real[k])));
  }
  EXPECT_LT(worstAgainstExact, 4e-3); // 2 x phase of 5000 rad x 2^-22
}

TEST(Sinusoid, SpacingIsOnTheFirstAxisForEveryAxis) {
  for (int axis = 0; axis < 3; ++axis) {
    const auto signal = sinusoidComplex(8.0f, 1.0f, 4, 1.0f, 0.0f, axis);
    EXPECT_EQ(signal.descriptor().spacing(), Eigen::Vector3d(0.125, 1.0, 1.0));
    EXPECT_EQ(signal.descriptor().dimensions()[axis], 4);
    EXPECT_EQ(signal.channels(), 2);
    EXPECT_NEAR(signal[3], std::sin(pi / 4.0), 1e-7); // sample 1, second channel
  }
  EXPECT_EQ(sinusoidReal(8.0f, 1.0f, 0, 1.0f, 0.0f, 0).size(), 0u);
  EXPECT_EQ(sinusoidComplex(8.0f, 1.0f, -3, 1.0f, 0.0f, 1).size(), 0u);
}

} // namespace
} // namespace Kelvaris::US::Signal
