#include "simulation/Phantom.h"

namespace Kelvaris::US {

std::vector<Eigen::Vector3d> phantomScatterers(PhantomType type, const Eigen::Vector3d& origin) {
  std::vector<Eigen::Vector3d> scatterers;
  if (type == PhantomType::Point) scatterers.push_back(origin);
  if (type == PhantomType::Grid5mm)
    for (int i = -5; i <= 5; ++i)
      for (int j = 0; j <= 5; ++j)
        scatterers.push_back(origin + Eigen::Vector3d(5.0 * i, 5.0 * j, 0.0));
  return scatterers;
}

} // namespace Kelvaris::US
