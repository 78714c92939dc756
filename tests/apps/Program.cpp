#include "apps/Program.h"

#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kelvaris::Tests {

ProgramResult runKelvaris(const std::string& line, const std::filesystem::path& folder,
                          const std::function<void()>& prepare) {
  const TemporaryFolder captured;
  const std::string output = captured / "out", error = captured / "err";
  std::istringstream words(line);
  std::vector<std::string> arguments(std::istream_iterator<std::string>(words), {});
  std::vector<char*> argv = {const_cast<char*>(KELVARIS_PROGRAM)};
  for (std::string& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);

  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no child process");
  if (child == 0) {
    const auto redirect = [](const char* path, int flags, int to) { dup2(open(path, flags, 0600), to); };
    redirect("/dev/null", O_RDONLY, STDIN_FILENO);
    redirect(output.c_str(), O_WRONLY | O_CREAT, STDOUT_FILENO);
    redirect(error.c_str(), O_WRONLY | O_CREAT, STDERR_FILENO);
    setenv("KELVARIS_PLUGIN_PATH", KELVARIS_PROGRAM_PLUGIN, 1);
    if (chdir(folder.c_str()) != 0) _exit(127);
    if (prepare) prepare();
    execv(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), readFile(output), readFile(error)};
}

} // namespace Kelvaris::Tests
