#pragma once

#include <Eigen/Core>

#include <vector>

namespace Kelvaris::US {

enum class PhantomType : int {
  Point = 0,  ///< shown as "Point"
  Grid5mm = 1 ///< shown as "5mm Grid"
};

/// The point scatterers of a phantom, in mm in the frame of the array. `Point`: one at `origin`. `Grid5mm`: 66, 5 mm
/// apart, from x = -25 mm to 25 mm and from y = 0 to 25 mm around `origin`; x runs slowest. None for any other type.
std::vector<Eigen::Vector3d> phantomScatterers(PhantomType type, const Eigen::Vector3d& origin);

} // namespace Kelvaris::US
