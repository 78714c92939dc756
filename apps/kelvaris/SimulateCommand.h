#pragma once

#include "kelvaris/Command.h"

namespace Kelvaris::CommandLine {

/// `kelvaris simulate`: channel data of a sequence and a phantom into files.
void addSimulateCommand(CLI::App& app, Job& job);

} // namespace Kelvaris::CommandLine
