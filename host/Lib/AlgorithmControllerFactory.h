#pragma once

#include "Lib/AlgorithmController.h"

#include <memory>
#include <string>
#include <utility>

namespace Kelvaris {

class Algorithm;

/// Which user interface belongs to an algorithm.
class AlgorithmControllerFactory {
public:
  explicit AlgorithmControllerFactory(std::string name) : m_name(std::move(name)) {}
  virtual ~AlgorithmControllerFactory() = default;
  AlgorithmControllerFactory(const AlgorithmControllerFactory&) = delete;
  AlgorithmControllerFactory& operator=(const AlgorithmControllerFactory&) = delete;

  const std::string& name() const { return m_name; }
  /// Null if this factory has no controller for the algorithm, which must outlive the controller.
  virtual std::unique_ptr<AlgorithmController> create(Algorithm* algorithm) const = 0;

private:
  std::string m_name;
};

} // namespace Kelvaris
