#pragma once

#include "Core/Spline.h"
#include "Lib/DataComponent.h"

#include <Eigen/Core>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Kelvaris::US {

/// Positions in mm of the elements of a straight array of `numElements` elements `pitch` mm apart:
///
///     element   0     1     2    ...   n-1
///          -----o-----o-----o-----+-----o-----o-----o-----> x
///               |     |<--->|     | origin
///               |      pitch      v y (depth)
///
///     x(i) = pitch * ((1 - n) / 2) + i * pitch,   y = z = 0       i(x) = x / pitch + (n - 1) / 2
///
/// Empty for fewer than one element.
std::vector<Eigen::Vector3d> computeElementsLinear(int numElements, double pitch);

/// Positions in mm of the elements of an array along a circle of radius `radius` mm around (0, -radius, 0), `pitch` mm
/// apart along the arc:
///
///                    . (0, -R): centre of the circle
///                   /|\                                    a(i) = (i - (n - 1) / 2) * pitch / R
///                  / | \  R
///                 /  |a \                                  x(i) = R sin a
///                /   |   \                                 y(i) = R cos a - R     (0 in the middle, else negative)
///     element 0 o    |    o n-1                            z(i) = 0
///                 o  |  o
///      -------------o+o---------------> x                  a(x, y) = atan2(x, y + R)
///                    | origin: apex of the arc             i(a) = a * R / pitch + (n - 1) / 2
///                    v y (depth)
///
/// Empty for fewer than one element. A radius of 0 gives positions that are not numbers.
std::vector<Eigen::Vector3d> computeElementsConvex(int numElements, double pitch, double radius);

/// The geometry of an ultrasound array: number of elements, pitch, and the radius of curvature of a curved one. The
/// element positions define the frame of all delays, apertures and images: x runs along the array, y into the medium,
/// z is the elevation (0 for every element), the origin is the array's centre; all in mm.
class Transducer : public DataComponent<Transducer> {
public:
  /// Stored counts above this are refused; positions, apertures and delays of an array take memory by its size.
  static constexpr int kMaxStoredElements = 16384;

  /// Stores both and makes the array straight. Not validated.
  void configureLinear(int numElements, double pitch);
  /// Stores the three and makes the array curved. Not validated.
  void configureConvex(int numElements, double pitch, double radius);
  static Transducer createLinear(int numElements, double pitch);
  static Transducer createConvex(int numElements, double pitch, double radius);

  int numElements() const { return m_numElements; }
  /// Distance between neighbouring elements in mm; on a curved array along the arc.
  double pitch() const { return m_pitch; }
  /// In mm; empty for a straight array.
  std::optional<double> radiusCurvature() const { return m_radiusCurvature; }
  bool isConvex() const { return m_radiusCurvature.has_value(); }
  bool isLinear() const { return !isConvex(); }

  /// By computeElementsLinear or computeElementsConvex, afresh on each call.
  std::vector<Eigen::Vector3d> elementPositions() const;
  /// The curve through the element positions.
  Spline shape() const { return Spline(elementPositions()); }

  std::string id() const override { return "Transducer"; }
  /// Reads "numberElements" (2 to kMaxStoredElements), "pitch", "type" ("linear" or "convex") and, for a convex
  /// array, "radiusCurvature" (0 if missing). Bad or incomplete properties are logged and leave the object unchanged.
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;

  /// Equal counts and kinds; pitches and radii less than 1e-12 mm apart.
  bool operator==(const Transducer& other) const;
  bool operator!=(const Transducer& other) const { return !(*this == other); }

private:
  int m_numElements = 0;
  double m_pitch = 0.0;
  std::optional<double> m_radiusCurvature;
};

} // namespace Kelvaris::US
