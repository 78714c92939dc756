#pragma once

namespace Kelvaris {

class Algorithm;

/// The user's hold on an algorithm, free of any toolkit: a user interface renders it.
class AlgorithmController {
public:
  /// The algorithm must outlive the controller. Throws std::invalid_argument for null.
  explicit AlgorithmController(Algorithm* algorithm);
  virtual ~AlgorithmController() = default;
  AlgorithmController(const AlgorithmController&) = delete;
  AlgorithmController& operator=(const AlgorithmController&) = delete;

  Algorithm& algorithm() const { return *m_algorithm; }

private:
  Algorithm* m_algorithm;
};

} // namespace Kelvaris
