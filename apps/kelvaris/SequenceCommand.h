#pragma once

#include "kelvaris/Command.h"

namespace Kelvaris::CommandLine {

/// `kelvaris sequence`: in which order acquisitions fire.
void addSequenceCommand(CLI::App& app, Job& job);

} // namespace Kelvaris::CommandLine
