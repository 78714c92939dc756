#include "apps/Program.h"

#include "support/TemporaryFolder.h"

#include <cstdio>
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

} // namespace Kelvaris::Tests
