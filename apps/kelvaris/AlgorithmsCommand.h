#pragma once

#include "kelvaris/Command.h"

namespace Kelvaris::CommandLine {

/// `kelvaris algorithms`: what there is, or what works on a file.
void addAlgorithmsCommand(CLI::App& app, Job& job);

} // namespace Kelvaris::CommandLine
