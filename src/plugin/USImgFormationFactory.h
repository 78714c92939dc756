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

/// Their controllers: the generic form, whose changes reach the algorithm at once; null for algorithms of others.
class USImgFormationControllerFactory : public AlgorithmControllerFactory {
public:
  USImgFormationControllerFactory();
  std::unique_ptr<AlgorithmController> create(Algorithm* algorithm) const override;
};

} // namespace Kelvaris::US
