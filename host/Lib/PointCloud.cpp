#include "Lib/PointCloud.h"

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

namespace Kelvaris {

PointCloud::PointCloud(std::vector<Eigen::Vector3d> points, std::string name) : m_points(std::move(points)) {
  setName(std::move(name));
}

void PointCloud::setWeights(std::optional<std::vector<double>> weights) {
  if (weights && weights->size() != m_points.size())
    throw std::invalid_argument(
        fmt::format("{} weights for {} points; expected one a point", weights->size(), m_points.size()));
  m_weights = std::move(weights);
}

} // namespace Kelvaris
