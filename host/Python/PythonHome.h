#pragma once

#include <filesystem>
#include <string>

namespace Kelvaris {

/// Which Python to embed.
struct PythonHome {
  std::filesystem::path executable; ///< of a virtual environment, which finds its packages by it; else empty
  std::filesystem::path prefix;     ///< of another installation; else empty
};

/// By the environment: KELVARIS_PYTHON_HOME, the folder of a virtual environment or of an installation (its "prefix");
/// else VIRTUAL_ENV, of an active virtual environment; else neither: Python's own rules (the system's, or PYTHONHOME).
/// `version` is "3.11". A KELVARIS_PYTHON_HOME that is no Python of this version throws std::runtime_error; such a
/// VIRTUAL_ENV is passed over with a logged warning, since it may have been meant for other programs.
PythonHome choosePythonHome(const std::string& version);

} // namespace Kelvaris
