#include "viewer/VirtualDisplay.h"

#include <array>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kelvaris::Tests {

VirtualDisplay::VirtualDisplay() {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    m_problem = "no pipe";
    return;
  }
  m_server = fork();
  if (m_server == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM); // also when a test crashes
    const int nowhere = open("/dev/null", O_RDWR);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    close(ends[0]);
    const std::string descriptor = std::to_string(ends[1]);
    execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-screen", "0", "1600x1200x24", "-nolisten", "tcp",
           static_cast<char*>(nullptr));
    _exit(127);
  }
  close(ends[1]);
  // The server writes its number once it can be talked to.
  std::string number;
  char c = 0;
  while (read(ends[0], &c, 1) == 1 && c != '\n')
    number += c;
  close(ends[0]);
  if (c == '\n') {
    m_name = ":" + number;
    return;
  }
  int status = 0;
  waitpid(m_server, &status, 0);
  m_server = -1;
  m_problem = WIFEXITED(status) && WEXITSTATUS(status) == 127 ? "Xvfb is not installed (Debian: apt-get install xvfb)"
                                                              : "Xvfb did not start";
}

VirtualDisplay::~VirtualDisplay() {
  if (m_server <= 0) return;
  kill(m_server, SIGTERM);
  waitpid(m_server, nullptr, 0);
}

} // namespace Kelvaris::Tests
