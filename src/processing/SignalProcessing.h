#pragma once

#include "Lib/MemImage.h"

/// Windowed-sinc FIR filters and sampled sinusoids. A signal of N samples is an image that extends along one axis (0 to
/// 2: width, height, slices) and has extent 1 along the others. Nothing here keeps state.
namespace Kelvaris::US::Signal {

enum class FilterType : int { Lowpass = 0, Highpass = 1, Bandpass = 2 };

/// The ideal responses, cut to the N elements of `image` in their linear order. With t = i - (N - 1) / 2:
///   low-pass    sin(2 pi c t) / (pi t),                       2 c at the centre
///   high-pass   -sin(2 pi c t) / (pi t),                      1 - 2 c at the centre
///   band-pass   (sin(2 pi u t) - sin(2 pi l t)) / (pi t),     2 u - 2 l at the centre
/// Cut-offs are fractions of the sampling frequency. N should be odd; an image without elements stays as it is.
void idealLowpass(double cutoff, TypedImage<float>& image);
void idealHighpass(double cutoff, TypedImage<float>& image);
void idealBandpass(double lower, double upper, TypedImage<float>& image);

/// Multiplies element j + n, for j = -n ... n and n = (N - 1) / 2, by 0.54 + 0.46 cos(2 pi j / n). The cosine runs
/// through two full periods: the weight is 1 at both ends and at the centre, and 0.08 half-way between, unlike in the
/// textbook window. A single element becomes NaN.
void applyHammingWindow(TypedImage<float>& image);

/// A one-channel windowed filter of `length` taps along `axis`, its spacing there 1 / samplingFrequency. `lower` and
/// `upper` are the cut-offs in the unit of `samplingFrequency`; a low-pass ignores `lower`, a high-pass `upper`. Any
/// other type designs nothing: the window is applied to whatever the new image holds.
/// Throws std::invalid_argument for an even length or an unknown axis.
TypedImage<float> createFirFilter(FilterType type, float samplingFrequency, float lower, float upper, int length,
                                  int axis);

/// amplitude cos(2 pi frequency i / samplingFrequency + phase), i = 0 ... length - 1, in one channel. The phase is
/// formed in single precision. The spacing is (1 / samplingFrequency, 1, 1) for every axis. A length below 1 gives an
/// image without elements. Throws std::invalid_argument for an unknown axis.
TypedImage<float> sinusoidReal(float samplingFrequency, float frequency, int length, float amplitude, float phase,
                               int axis);

/// The same with two channels, the cosine and the sine.
TypedImage<float> sinusoidComplex(float samplingFrequency, float frequency, int length, float amplitude, float phase,
                                  int axis);

} // namespace Kelvaris::US::Signal
