#include "Lib/AlgorithmController.h"

#include <stdexcept>

namespace Kelvaris {

AlgorithmController::AlgorithmController(Algorithm* algorithm) : m_algorithm(algorithm) {
  if (!algorithm) throw std::invalid_argument("A controller needs an algorithm; got null");
}

} // namespace Kelvaris
