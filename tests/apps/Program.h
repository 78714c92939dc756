#pragma once

#include <filesystem>
#include <string>

namespace Kelvaris::Tests {

struct ProgramResult {
  int status; ///< exit status; 128 + number for a program that a signal ended
  std::string output, error;
};

/// Has a shell run the built `kelvaris` with the arguments of the line, in `folder`, with nothing on its standard input
/// and only the plugin KELVARIS_PROGRAM_PLUGIN. `before` are commands that come first, each with its semicolon.
ProgramResult runKelvaris(const std::string& line, const std::filesystem::path& folder, const std::string& before = {});

} // namespace Kelvaris::Tests
