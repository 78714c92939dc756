#pragma once

#include "Lib/AlgorithmControllerFactory.h"
#include "Lib/AlgorithmFactory.h"

#include <memory>

namespace Kelvaris::US {

/// The algorithms of this library, as "USImgFormation.<id>".
class USImgFormationAlgorithmFactory : public AlgorithmFactory {
public:
  USImgFormationAlgorithmFactory();
};

/// Their controllers: panels of their own for the simulated stream and for the executor of stream algorithms; for the
/// others the generic form, whose changes reach the algorithm at once. Null for algorithms without one, and where the
/// build has no forms.
class USImgFormationControllerFactory : public AlgorithmControllerFactory {
public:
  USImgFormationControllerFactory();
  std::unique_ptr<AlgorithmController> create(Algorithm* algorithm) const override;
};

} // namespace Kelvaris::US
