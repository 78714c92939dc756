#pragma once

#include "Lib/SharedImageSet.h"

#include <memory>
#include <vector>

namespace Kelvaris::CommandLine {

/// Small image sets of the kinds that algorithms of this field work on: a pre-scan picture with its geometry, and
/// channel data with their acquisition (where a plugin knows that component). For those who want an algorithm without
/// having data for it. The samples are zero.
std::vector<std::unique_ptr<SharedImageSet>> exampleData();

} // namespace Kelvaris::CommandLine
