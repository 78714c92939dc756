#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace Kelvaris::Tests {

struct ProgramResult {
  int status; ///< exit status; 128 + number for a program that a signal ended, as a shell has it
  std::string output, error;
};

/// Runs the built `kelvaris` in `folder` with nothing on its standard input and only the plugin
/// KELVARIS_PROGRAM_PLUGIN. The line holds its arguments with blanks between. `prepare` runs in the child before the
/// program.
ProgramResult runKelvaris(const std::string& line, const std::filesystem::path& folder,
                          const std::function<void()>& prepare = {});

} // namespace Kelvaris::Tests
