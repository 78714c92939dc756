#pragma once

#include "Lib/Data.h"

#include <Eigen/Core>

#include <optional>
#include <string>
#include <vector>

namespace Kelvaris {

/// Points in space, each with a weight where there are weights.
class PointCloud : public Data {
public:
  /// In mm.
  explicit PointCloud(std::vector<Eigen::Vector3d> points, std::string name = {});

  Kind kind() const override { return UnknownKind; }
  Modality modality() const override { return UnknownModality; }

  int size() const { return static_cast<int>(m_points.size()); }
  const std::vector<Eigen::Vector3d>& points() const { return m_points; }

  /// One a point; nothing where none were set.
  const std::optional<std::vector<double>>& weights() const { return m_weights; }
  /// Throws std::invalid_argument if there isn't one weight a point.
  void setWeights(std::optional<std::vector<double>> weights);

private:
  std::vector<Eigen::Vector3d> m_points;
  std::optional<std::vector<double>> m_weights;
};

} // namespace Kelvaris
