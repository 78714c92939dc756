#include "viewer/ViewerProgram.h"

#include "viewer/Display.h"
#include "viewer/ViewerWindow.h"

#include "Lib/PluginManager.h"

#include <CLI/CLI.hpp>

#include <QApplication>
#include <QSettings>

#include <cstdio>
#include <string>
#include <vector>

#include <malloc.h>

namespace Kelvaris::Viewer {
namespace {

struct Options {
  std::vector<std::string> files;
  std::string chain;
  bool dark = false;
};

void declare(CLI::App& app, Options& options) {
  app.add_option("FILES", options.files, "Images (.kvx) and sessions (.kvs) to open")->check(CLI::ExistingFile);
  app.add_option("--chain", options.chain, "A file with steps (XML), applied to the first of the images")
      ->check(CLI::ExistingFile);
  app.add_flag("--dark", options.dark, "Dark colours");
  app.footer("The environment variable QT_SCALE_FACTOR (for example 1.25) enlarges everything.");
}

} // namespace

int runViewer(int argc, char** argv) {
  // As in the command line: images of past frames go back to the system instead of making gaps in the heap.
  mallopt(M_MMAP_THRESHOLD, 1 << 16);

  CLI::App app("Looks at ultrasound data, recorded or live, and at what algorithms make of them", "kelvaris-viewer");
  Options options;
  declare(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  if (!options.chain.empty() && options.files.empty()) {
    std::fprintf(stderr, "kelvaris-viewer: --chain needs images to apply the steps to; name a .kvx file\n");
    return 2;
  }
  if (const std::string problem = displayProblem(); !problem.empty()) {
    std::fprintf(stderr, "kelvaris-viewer: %s\n", problem.c_str());
    return 1;
  }

  int count = 1;
  QApplication application(count, argv);
  QApplication::setApplicationName("kelvaris-viewer");
  QApplication::setApplicationDisplayName("Kelvaris viewer");
  LogModel log; // from now on, for the panel
  PluginManager::get().loadAll();
  QSettings settings("Kelvaris", "kelvaris-viewer");
  int status = 0;
  {
    ViewerWindow window(&settings, log);
    if (options.dark) window.setDark(true);
    window.show();
    window.openAll(options.files, options.chain);
    status = QApplication::exec();
  }
  return status;
}

} // namespace Kelvaris::Viewer
