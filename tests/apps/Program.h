#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Kelvaris::Tests {

struct ProgramResult {
  int status; ///< exit status; 128 + number for a program that a signal ended
  std::string output, error;
};

/// Has a shell run the built `kelvaris` with the arguments of the line, in `folder`, with nothing on its standard input
/// and only the plugin KELVARIS_PROGRAM_PLUGIN. `before` are commands that come first, each with its semicolon.
ProgramResult runKelvaris(const std::string& line, const std::filesystem::path& folder, const std::string& before = {});

/// The same where success is expected. Throws std::runtime_error with what the program says otherwise.
ProgramResult runSuccessfully(const std::string& line, const std::filesystem::path& folder);

/// The lines for `kelvaris` in the code blocks of a page, those that end in \ with the next.
std::vector<std::string> commandsOf(const std::filesystem::path& page);

} // namespace Kelvaris::Tests
