#pragma once

#include "kelvaris/Command.h"

namespace Kelvaris::CommandLine {

/// kelvaris import: turns samples from elsewhere and the description of their acquisition into channel data.
void addImportCommand(CLI::App& app, Job& job);

} // namespace Kelvaris::CommandLine
