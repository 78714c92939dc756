#pragma once

namespace Kelvaris::Viewer {

/// The program kelvaris-viewer: reads the command line, opens the window with what it names, and runs until the window
/// closes. Returns the exit status: 0, or 1 where there is no display, 2 for a command line that makes no sense. What
/// went wrong is said on standard error.
int runViewer(int argc, char** argv);

} // namespace Kelvaris::Viewer
