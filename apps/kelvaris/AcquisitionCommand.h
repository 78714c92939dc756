#pragma once

#include "kelvaris/Command.h"

namespace Kelvaris::CommandLine {

/// kelvaris acquisition: writes the XML of a frame acquisition from the parameters of an experiment.
void addAcquisitionCommand(CLI::App& app, Job& job);

} // namespace Kelvaris::CommandLine
