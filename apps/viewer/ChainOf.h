#pragma once

#include "kelvaris/Step.h"

#include <vector>

namespace Kelvaris::Viewer {

class DataItem;

/// The steps that lead from a file or a source to the item, as `kelvaris run --chain` and Workspace::applyChain() take
/// them. Of several inputs the first counts.
std::vector<CommandLine::Step> chainOf(const DataItem& item);

} // namespace Kelvaris::Viewer
