#pragma once

#include "kelvaris/Command.h"

namespace Kelvaris::CommandLine {

/// `kelvaris stream simulated`: simulated channel data, live.
void addStreamCommand(CLI::App& app, Job& job);

} // namespace Kelvaris::CommandLine
