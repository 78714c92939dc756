#include "viewer/Display.h"

#include <QGuiApplication>

#include <array>
#include <cstdlib>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kelvaris::Viewer {
namespace {

bool isSet(const char* variable) {
  const char* const value = std::getenv(variable);
  return value && *value;
}

const char* const kAdvice = "Start kelvaris-viewer on a desktop, through \"ssh -X\", or under a virtual display "
                            "(\"xvfb-run kelvaris-viewer ...\"); without a window, use the command line kelvaris";

/// Ends with status 0 if Qt finds its display.
[[noreturn]] void tryDisplay(int errors) {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  dup2(errors, STDERR_FILENO);
  std::array<char, 7> name{"viewer"};
  std::array<char*, 2> arguments{name.data(), nullptr};
  int count = 1;
  { const QGuiApplication application(count, arguments.data()); }
  _exit(0);
}

} // namespace

std::string displayProblem() {
  if (!isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY") && !isSet("QT_QPA_PLATFORM"))
    return std::string("There is no display: neither DISPLAY nor WAYLAND_DISPLAY is set. ") + kAdvice;
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return {};
  const pid_t child = fork();
  if (child == 0) tryDisplay(ends[1]);
  close(ends[1]);
  std::string errors;
  std::array<char, 512> part{};
  for (ssize_t size = 0; child > 0 && (size = read(ends[0], part.data(), part.size())) > 0;)
    errors.append(part.data(), static_cast<std::size_t>(size));
  close(ends[0]);
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) return {};
  const std::string reason = errors.substr(0, errors.find('\n'));
  return "The display can't be used: " + (reason.empty() ? std::string("Qt ended without a reason") : reason) + ". " +
         kAdvice;
}

} // namespace Kelvaris::Viewer
