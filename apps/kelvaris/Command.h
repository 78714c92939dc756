#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

/// A subcommand is a function add<Name>Command(app, job) in a file of its own: it declares the subcommand and its
/// options on `app`, and a callback that sets `job` to the work. The job runs after the whole command line has been
/// read; it prints results on standard output and throws on failure, which ends the program with status 1 and the
/// exception's text on standard error.
namespace Kelvaris::CommandLine {

using Job = std::function<void()>;

/// Ends the program with status 130, as programs stopped by Ctrl-C do.
class Canceled : public std::runtime_error {
public:
  Canceled() : std::runtime_error("Canceled; nothing was written") {}
};

} // namespace Kelvaris::CommandLine
