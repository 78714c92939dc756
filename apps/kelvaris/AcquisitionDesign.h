#pragma once

#include "Core/Properties.h"

#include <Eigen/Core>

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// An acquisition in the terms of an experiment's protocol, turned into the stored form of a frame acquisition. All
/// lengths in mm, times in s, frequencies in Hz, angles in radians; x along the array, z into the medium, origin at the
/// array's centre.
namespace Kelvaris::CommandLine {

enum class Wave { Focused = 0, Plane = 1, Diverging = 2, SingleElement = 3 };

/// Which moment of a transmission the recording calls t = 0.
enum class TimeZero {
  FirstElement, ///< the element that fires first fires
  Origin ///< the wave passes the origin of its event (for a plane wave with the default origin: the array's centre)
};

/// Channel of an element's signal in the recording.
enum class ChannelOrder {
  Wrapped, ///< element modulo size of the receive aperture
  Element, ///< the element's own number
  Aperture ///< counted from the first element of the event's receive aperture
};

struct AcquisitionDesign {
  int numElements = 0;
  double pitch = 0.0;
  std::optional<double> radius; ///< radius of curvature of a convex array

  double speedOfSound = 1.54e6; ///< mm/s
  double pulseFrequency = 0.0;
  double pulseLength = 2.0; ///< cycles

  double samplingFrequency = 0.0;
  double startTime = 0.0;     ///< of the first sample
  double pulseDelay = 0.0;    ///< by which echoes come later than geometry says; subtracted from the sample times
  std::optional<int> samples; ///< in a recording; else it ends with the last echo from the area
  TimeZero timeZero = TimeZero::FirstElement;
  ChannelOrder channelOrder = ChannelOrder::Wrapped;

  Wave wave = Wave::Plane;
  std::vector<double> angles = {0.0};  ///< from the depth axis, or from the array's normal at the origins of `beams`
  std::vector<double> origins;         ///< positions along the array; none: its centre
  std::optional<int> apertures;        ///< instead of origins: so many apertures, evenly from one end to the other
  std::optional<int> beams;            ///< instead of origins: so many, evenly from the first element to the last
  std::optional<double> distance;      ///< from the origin to the focus, or back to the virtual source
  std::vector<Eigen::Vector2d> points; ///< foci or virtual sources (x, z), instead of angles and distance
  std::vector<int> firing;             ///< elements that fire one by one, counted from 0; none: all
  std::optional<int> transmitAperture; ///< elements; default: the whole array
  std::optional<int> receiveAperture;

  double endDepth = 0.0;                      ///< along the lines of beams and sectors
  double startDepth = 0.0;                    ///< what lies above is left out of the image
  std::optional<std::pair<double, double>> x; ///< default: over the width of the array
  std::optional<double> sector;               ///< instead of x: a fan of lines, this angle to either side
  double apex = 0.0;                          ///< distance from the array back to the point where its lines meet

  /// Throws std::invalid_argument that names the value and what would be right.
  void check() const;
  /// The stored form: parameters where the model makes exactly these events, region and geometry from them, else every
  /// event. Throws like check().
  Properties toProperties() const;
};

/// Positions (x, z) of the elements, as the model places them.
std::vector<Eigen::Vector2d> elementPositions(const AcquisitionDesign& design);

} // namespace Kelvaris::CommandLine
