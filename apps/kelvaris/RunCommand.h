#pragma once

#include "kelvaris/Command.h"

#include <string>
#include <utility>

namespace Kelvaris::CommandLine {

/// `kelvaris run`: images of a file through a chain of algorithms into files.
void addRunCommand(CLI::App& app, Job& job);

/// The images that "a:b" selects out of `size`: from a up to, not including, b. A missing end is that of the file, "a"
/// alone is one image. Throws std::invalid_argument for anything else and for images that aren't there.
std::pair<int, int> parseRange(const std::string& text, int size);

} // namespace Kelvaris::CommandLine
