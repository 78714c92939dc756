#pragma once

#include "support/TemporaryFolder.h"

#include <cstdio>
#include <sstream>

#include <sys/wait.h>

namespace Kelvaris::Tests {

struct ProgramResult {
  int status; ///< exit status; 128 + number for a program that a signal ended
  std::string output, error;
};

/// Has a shell run the built `kelvaris` with the arguments of the line, in `folder`, with nothing on its standard input
/// and only the plugin KELVARIS_PROGRAM_PLUGIN. `before` are commands that come first, each with its semicolon.
inline ProgramResult runKelvaris(const std::string& line, const std::filesystem::path& folder,
                                 const std::string& before = {}) {
  const TemporaryFolder captured;
  const std::string output = captured / "output";
  const std::string command = "cd '" + folder.string() + "' && " + before +
                              " KELVARIS_PLUGIN_PATH='" KELVARIS_PROGRAM_PLUGIN "' '" KELVARIS_PROGRAM "' " + line +
                              " </dev/null 2>&1 >'" + output + "'";
  std::FILE* const errors = popen(command.c_str(), "r");
  if (!errors) throw std::runtime_error("no child process");
  std::string error;
  for (int c = 0; (c = std::fgetc(errors)) != EOF;)
    error += static_cast<char>(c);
  const int status = pclose(errors);
  return {WEXITSTATUS(status), readFile(output), error};
}

/// The same where success is expected. Throws std::runtime_error with what the program says otherwise.
inline ProgramResult runSuccessfully(const std::string& line, const std::filesystem::path& folder) {
  ProgramResult result = runKelvaris(line, folder);
  if (result.status != 0) throw std::runtime_error(line + ": " + result.error);
  return result;
}

/// The lines for `kelvaris` in the code blocks of a page, those that end in \ with the next.
inline std::vector<std::string> commandsOf(const std::filesystem::path& page) {
  const std::string program = "kelvaris ";
  std::istringstream text(readFile(page));
  std::vector<std::string> commands;
  bool code = false, continues = false;
  for (std::string line; std::getline(text, line);) {
    if (line == "```") {
      code = !code;
    } else if (code) {
      if (!continues && !line.starts_with(program)) throw std::runtime_error(page.string() + ": " + line);
      if (!continues) commands.emplace_back();
      line.erase(0, continues ? 0 : program.size());
      continues = line.ends_with('\\');
      commands.back() += continues ? line.substr(0, line.size() - 1) : line;
    }
  }
  return commands;
}

} // namespace Kelvaris::Tests
