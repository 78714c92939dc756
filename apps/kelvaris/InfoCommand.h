#pragma once

#include "kelvaris/Command.h"

#include "Core/Properties.h"

#include <string>

namespace Kelvaris::CommandLine {

/// `kelvaris info`: what is in a file.
void addInfoCommand(CLI::App& app, Job& job);

/// The contents in lines with `indent` blanks in front. Unless `full`, long lists are cut and of many sub-properties
/// under one name only the first is shown.
std::string describeProperties(const Properties& properties, int indent, bool full);

} // namespace Kelvaris::CommandLine
