#include "Python/PythonHome.h"

#include "Core/Log.h"

#include <fmt/format.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace Kelvaris {
namespace {

namespace fs = std::filesystem;

/// "3.11.2" from the line "version = 3.11.2" (or "version_info = ...") of a virtual environment's settings; empty if
/// there is none.
std::string versionOf(const fs::path& settings) {
  std::ifstream stream(settings);
  for (std::string line; std::getline(stream, line);) {
    const auto equals = line.find('=');
    if (equals == std::string::npos) continue;
    std::string key = line.substr(0, equals), value = line.substr(equals + 1);
    std::erase(key, ' ');
    std::erase(value, ' ');
    if (key == "version" || key == "version_info") return value;
  }
  return {};
}

PythonHome homeAt(const fs::path& folder, const std::string& version) {
  std::error_code error;
  if (const fs::path settings = folder / "pyvenv.cfg"; fs::exists(settings, error)) {
    const std::string found = versionOf(settings);
    if (!(found + ".").starts_with(version + "."))
      throw std::runtime_error(fmt::format("a virtual environment of Python {}; expected one of Python {}",
                                           found.empty() ? "of unknown version" : found, version));
    const fs::path executable = folder / "bin" / "python3";
    if (!fs::exists(executable, error))
      throw std::runtime_error(fmt::format("a virtual environment without \"{}\"", executable.string()));
    return {executable, {}};
  }
  if (fs::exists(folder / "lib" / ("python" + version) / "os.py", error)) return {{}, folder};
  throw std::runtime_error(fmt::format("neither a virtual environment (no pyvenv.cfg) nor an installation of Python {} "
                                       "(no lib/python{}/os.py)",
                                       version, version));
}

} // namespace

PythonHome choosePythonHome(const std::string& version) {
  if (const char* home = std::getenv("KELVARIS_PYTHON_HOME"); home && *home) {
    try {
      return homeAt(home, version);
    } catch (const std::runtime_error& failure) {
      throw std::runtime_error(fmt::format("KELVARIS_PYTHON_HOME is \"{}\", {}", home, failure.what()));
    }
  }
  if (const char* environment = std::getenv("VIRTUAL_ENV"); environment && *environment) {
    try {
      return homeAt(environment, version);
    } catch (const std::runtime_error& failure) {
      Log::warning("PythonPlugin", "VIRTUAL_ENV is passed over: it is \"{}\", {}", environment, failure.what());
    }
  }
  return {};
}

} // namespace Kelvaris
