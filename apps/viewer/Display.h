#pragma once

#include <string>

namespace Kelvaris::Viewer {

/// Why no window can be opened in this environment, and what to do about it; empty if one can. Call before the process
/// has threads: a child tries it, since Qt ends the process that fails.
std::string displayProblem();

} // namespace Kelvaris::Viewer
