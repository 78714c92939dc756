#include "apps/Program.h"

#include "support/TemporaryFolder.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>

#include <sys/wait.h>

namespace Kelvaris::Tests {

ProgramResult runKelvaris(const std::string& line, const std::filesystem::path& folder, const std::string& before) {
  const TemporaryFolder captured;
  const std::string output = captured / "output";
  const std::string command = "cd '" + folder.string() + "' && " + before +
                              " KELVARIS_PLUGIN_PATH='" KELVARIS_PROGRAM_PLUGIN "' '" KELVARIS_PROGRAM "' " + line +
                              " </dev/null 2>&1 >'" + output + "'";
  std::FILE* const errors = popen(command.c_str(), "r");
  if (!errors) throw std::runtime_error("no child process");
  std::string error;
  char buffer[4096];
  for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof(buffer), errors)) > 0;)
    error.append(buffer, n);
  const int status = pclose(errors);
  return {WEXITSTATUS(status), readFile(output), error};
}

ProgramResult runSuccessfully(const std::string& line, const std::filesystem::path& folder) {
  ProgramResult result = runKelvaris(line, folder);
  if (result.status != 0) throw std::runtime_error(line + ": " + result.error);
  return result;
}

std::vector<std::string> commandsOf(const std::filesystem::path& page) {
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
