#pragma once

#include "Lib/PluginBase.h"
#include "Python/PythonInterpreter.h"

namespace Kelvaris {

/// The plugin that brings Python into the host. Found among the loaded plugins by its type; absent where the host was
/// built without Python.
class PythonPlugin : public PluginBase {
public:
  /// The interpreter, started by the first call; owned by the plugin. Null, with the reason logged once as a warning,
  /// where there is none or it can't be started. Thread-safe. If the process is a Python already, that one.
  virtual PythonInterpreter* interpreter() = 0;
};

} // namespace Kelvaris
