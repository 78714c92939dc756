#pragma once

#include "Python/PythonInterpreter.h"

#include <filesystem>
#include <memory>

namespace Kelvaris {

/// What the library that holds the interpreter exports under the name below. It must be loaded where Python's symbols
/// are visible. `modules` is the folder of the module `kelvaris`. Throws std::runtime_error with the reason.
using CreatePythonInterpreter = std::unique_ptr<PythonInterpreter>(const std::filesystem::path& modules);

inline constexpr const char* kCreatePythonInterpreter = "kelvarisCreatePythonInterpreter";

} // namespace Kelvaris
