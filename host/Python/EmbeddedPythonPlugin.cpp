// The plugin itself is free of Python, so that it loads where Python's library is missing: that and the interpreter's
// own library are brought in when somebody asks for the interpreter.

#include "Core/Log.h"
#include "Lib/PluginAutoRegistrationGuard.h"
#include "Lib/PluginInterface.h"
#include "Python/InterpreterLibrary.h"
#include "Python/PythonPlugin.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Kelvaris {
namespace {

constexpr const char* kCategory = "PythonPlugin";

const char* pluginId() {
  return "Kelvaris.Python";
}

std::filesystem::path ownFolder() {
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&pluginId), &info) == 0 || !info.dli_fname) return {};
  std::error_code error;
  return std::filesystem::weakly_canonical(info.dli_fname, error).parent_path();
}

void* loadLibrary(const char* file, int flags) {
  void* handle = dlopen(file, flags);
  if (!handle) throw std::runtime_error(dlerror());
  return handle;
}

/// Python's symbols, visible to all: extension modules take them from the process.
void providePython() {
  using Version = const char*();
  auto* version = reinterpret_cast<Version*>(dlsym(RTLD_DEFAULT, "Py_GetVersion"));
  if (!version) {
    const char* file = std::getenv("KELVARIS_LIBPYTHON");
    loadLibrary(file && *file ? file : KELVARIS_LIBPYTHON, RTLD_NOW | RTLD_GLOBAL);
    return;
  }
  const std::string_view running = version();
  if (!running.starts_with(KELVARIS_PYTHON_VERSION "."))
    throw std::runtime_error(fmt::format("the process runs Python {}, and this host was built for " //
                                         KELVARIS_PYTHON_VERSION,
                                         running.substr(0, running.find(' '))));
}

std::unique_ptr<PythonInterpreter> createInterpreter() {
  providePython();
  const std::filesystem::path folder = ownFolder();
  // Both stay in the process: no Python can be started twice.
  void* library = loadLibrary((folder / KELVARIS_INTERPRETER_LIBRARY).c_str(), RTLD_NOW | RTLD_LOCAL);
  auto* create = reinterpret_cast<CreatePythonInterpreter*>(dlsym(library, kCreatePythonInterpreter));
  if (!create) throw std::runtime_error(dlerror());
  return create(folder);
}

class EmbeddedPythonPlugin : public PythonPlugin {
public:
  std::string author() const override { return "Kelvaris"; }
  std::string description() const override { return "The embedded Python interpreter"; }
  int init() override { return 0; }

  PythonInterpreter* interpreter() override {
    const std::scoped_lock lock(m_mutex);
    if (!m_asked) {
      m_asked = true;
      try {
        m_interpreter = createInterpreter();
      } catch (const std::exception& failure) {
        Log::warning(kCategory, "There is no Python interpreter: {}", failure.what());
      }
    }
    return m_interpreter.get();
  }

private:
  std::mutex m_mutex;
  bool m_asked = false;
  std::unique_ptr<PythonInterpreter> m_interpreter;
};

const PluginAutoRegistrationGuard g_guard(&pluginId);

} // namespace
} // namespace Kelvaris

extern "C" {
extern const char* const kelvarisPluginDescriptor;
const char* const kelvarisPluginDescriptor = KELVARIS_PLUGIN_DESCRIPTOR("");
const char* kelvarisPluginId();
const char* kelvarisPluginId() {
  return Kelvaris::pluginId();
}
Kelvaris::PluginBase* kelvarisCreatePlugin();
Kelvaris::PluginBase* kelvarisCreatePlugin() {
  return std::make_unique<Kelvaris::EmbeddedPythonPlugin>().release();
}
}
