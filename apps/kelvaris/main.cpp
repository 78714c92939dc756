#include "kelvaris/AcquisitionCommand.h"
#include "kelvaris/AlgorithmsCommand.h"
#include "kelvaris/Command.h"
#include "kelvaris/ImportCommand.h"
#include "kelvaris/InfoCommand.h"
#include "kelvaris/RunCommand.h"
#include "kelvaris/SequenceCommand.h"
#include "kelvaris/SimulateCommand.h"
#include "kelvaris/StreamCommand.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

#include <malloc.h>

int main(int argc, char** argv) {
  using namespace Kelvaris::CommandLine;
  // Images lie in memory of their own, which goes back to the system: on the heap, what little stays of each frame
  // would sit in the gaps that its images leave, and the program would grow with every frame.
  mallopt(M_MMAP_THRESHOLD, 1 << 16);
  // A file that may not grow any more is then an error as any other.
  std::signal(SIGXFSZ, SIG_IGN);

  CLI::App app("Ultrasound image formation: from recorded channel data to pictures");
  app.require_subcommand(1);
  Job job;
  addAlgorithmsCommand(app, job);
  addInfoCommand(app, job);
  addRunCommand(app, job);
  addImportCommand(app, job);
  addAcquisitionCommand(app, job);
  addSequenceCommand(app, job);
  addSimulateCommand(app, job);
  addStreamCommand(app, job);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  try {
    job();
    return 0;
  } catch (const Canceled& canceled) {
    std::fprintf(stderr, "kelvaris: %s\n", canceled.what());
    return 130;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "kelvaris: There is not enough memory\n");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kelvaris: %s\n", error.what());
  }
  return 1;
}
