// Loads the Python plugin and executes a text, in a process of its own: PROBE PLUGIN STATEMENTS.

#include "Lib/PluginManager.h"
#include "Python/PythonPlugin.h"

#include <cstdio>
#include <exception>

#ifdef __SANITIZE_ADDRESS__
/// Python goes on until the process ends, so what it holds then is no leak.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "detect_leaks=0";
}
#endif

int main(int, char** argv) {
  auto& plugin = dynamic_cast<Kelvaris::PythonPlugin&>(Kelvaris::PluginManager::get().load(argv[1]));
  Kelvaris::PythonInterpreter* const python = plugin.interpreter();
  std::printf("interpreter: %s\n", python ? "there" : "none");
  std::fflush(stdout);
  try {
    if (python) python->execute(argv[2]);
  } catch (const std::exception& error) {
    std::printf("error: %s\n", error.what());
  }
  return plugin.interpreter() == python ? 0 : 1;
}
