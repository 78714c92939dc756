#include "processing/SignalProcessing.h"

#include "support/ErrorOf.h"

#include <complex>

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

TEST(FirFilter, TapsFollowTheClosedForm) {
  const auto lowpass = [](double cutoff, int t) { return 2.0 * cutoff * sinc(2.0 * cutoff * t); };
  const struct {
    FilterType type;
    double lower, upper;                 ///< of the sampling frequency
    std::function<double(int)> response; ///< at a distance from the centre
  } designs[] = {{FilterType::Lowpass, 0.225, 0.15, [&](int t) { return lowpass(0.15, t); }},
                 {FilterType::Highpass, 0.15, 0.05, [&](int t) { return (t == 0 ? 1.0 : 0.0) - lowpass(0.15, t); }},
                 {FilterType::Bandpass, 0.1, 0.3, [&](int t) { return lowpass(0.3, t) - lowpass(0.1, t); }}};
  for (const auto& d : designs)
    for (const int length : {3, 51, 101}) {
      const auto filter = createFirFilter(d.type, 40e6f, static_cast<float>(d.lower * 40e6),
                                          static_cast<float>(d.upper * 40e6), length, 1);
      ASSERT_EQ(filter.size(), static_cast<std::size_t>(length));
      for (int i = 0; i < length; ++i)
        EXPECT_NEAR(filter[static_cast<std::size_t>(i)], d.response(i - length / 2) * windowWeight(i, length), 1e-7)
            << "tap " << i << " of " << length;
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
  }
}

TEST(FirFilter, DegenerateInput) {
  for (const int length : {50, 0, -2})
    EXPECT_EQ(Tests::errorOf<std::invalid_argument>(
                  [&] { createFirFilter(FilterType::Bandpass, 40.0f, 1.0f, 2.0f, length, 0); }),
              "Even filter length is not supported. Given length: " + std::to_string(length));
  EXPECT_THROW(createFirFilter(FilterType::Lowpass, 40.0f, 1.0f, 2.0f, 51, 3), std::invalid_argument);

  EXPECT_TRUE(std::isnan(createFirFilter(FilterType::Lowpass, 40.0f, 0.0f, 2.0f, 1, 0)[0]));
  EXPECT_EQ(createFirFilter(static_cast<FilterType>(7), 40.0f, 1.0f, 2.0f, 5, 2).slices(), 5);
  TypedImage<float> empty(0, 1);
  idealLowpass(0.1, empty);
  applyHammingWindow(empty);
}

TEST(Sinusoid, PhaseIsFormedInSinglePrecision) {
  constexpr float fs = 31.25e6f, f = -5.208e6f, amplitude = 2.0f, phase = 0.3f;
  constexpr int length = 5000;
  const auto complex = sinusoidComplex(fs, f, length, amplitude, phase, 0);
  const auto real = sinusoidReal(fs, f, length, amplitude, phase, 0);
  for (int i = 0; i < length; ++i) {
    volatile float x = static_cast<float>(i) / fs; // each step is stored, so that no wider intermediate survives
    x = x * ((f + f) * 3.1415927f);
    x = x + phase;
    const double single = x;
    const auto k = static_cast<std::size_t>(i);
    ASSERT_EQ(complex[2 * k], static_cast<float>(2.0 * std::cos(single))) << i;
    ASSERT_EQ(complex[2 * k + 1], static_cast<float>(2.0 * std::sin(single))) << i;
    ASSERT_EQ(real[k], complex[2 * k]) << i;
  }
}

TEST(Sinusoid, SpacingIsOnTheFirstAxisForEveryAxis) {
  for (int axis = 0; axis < 3; ++axis) {
    const auto signal = sinusoidComplex(8.0f, 1.0f, 4, 1.0f, 0.0f, axis);
    EXPECT_EQ(signal.descriptor().spacing(), Eigen::Vector3d(0.125, 1.0, 1.0));
    EXPECT_EQ(signal.descriptor().dimensions()[axis], 4);
  }
  EXPECT_EQ(sinusoidComplex(8.0f, 1.0f, -3, 1.0f, 0.0f, 1).size(), 0u);
}

} // namespace
} // namespace Kelvaris::US::Signal
