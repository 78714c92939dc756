#pragma once

#include "Lib/ImageDescriptor.h"
#include "viewer/view/DisplayMapping.h"
#include "viewer/view/SliceStatistics.h"

namespace Kelvaris::Viewer {

/// What the samples of an image are, as far as their type and their values tell.
enum class Contents {
  Levels,    ///< uint8: display levels
  Color,     ///< uint8 with 3 or 4 components
  Iq,        ///< several components, shown by their magnitude
  Signal,    ///< values of both signs
  Amplitude, ///< no value below 0
  Decibels   ///< floating point without a value above 0
};

Contents contentsOf(const ImageDescriptor& descriptor, const SliceStatistics& statistics);

/// How such contents are shown at first: display levels as they are, amplitudes and magnitudes in decibels, the rest
/// linearly.
DisplayMapping firstMapping(Contents contents, const SliceStatistics& statistics);
/// The mapping of that law that the values suggest: in decibels 60 dB up to the largest value; linearly a window around
/// 0 that holds 99.5 % of the values of a signal, or the one between the 0.5 % quantiles of other values.
DisplayMapping automaticMapping(DisplayMapping::Law law, Contents contents, const SliceStatistics& statistics);
/// Linearly the range of an integer type, or from the least to the largest of floating-point values; in decibels 120 dB
/// up to the largest value.
DisplayMapping fullMapping(DisplayMapping::Law law, const ImageDescriptor& descriptor,
                           const SliceStatistics& statistics);

} // namespace Kelvaris::Viewer
