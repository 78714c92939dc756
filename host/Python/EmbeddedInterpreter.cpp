// The one library of the host that calls Python. Its symbols come from the process, as in an extension module.

#include "Python/DataCast.h"
#include "Python/InterpreterLibrary.h"
#include "Python/PythonHome.h"

#include <fmt/format.h>
#include <pybind11/eval.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <stdexcept>
#include <utility>

#include <signal.h> // sigaction

namespace py = pybind11;

namespace Kelvaris {
namespace {

void check(const PyStatus& status) {
  if (PyStatus_Exception(status))
    throw std::runtime_error(fmt::format("Python can't be started: {}{}{}", status.func ? status.func : "",
                                         status.func ? ": " : "", status.err_msg ? status.err_msg : "unknown reason"));
}

struct Config : PyConfig {
  Config() { PyConfig_InitPythonConfig(this); }
  ~Config() { PyConfig_Clear(this); }
  Config(const Config&) = delete;
  Config& operator=(const Config&) = delete;

  void set(wchar_t** field, const std::filesystem::path& path) {
    if (!path.empty()) check(PyConfig_SetBytesString(this, field, path.c_str()));
  }
};

/// Leaves the GIL released.
void start() {
  const PythonHome python = choosePythonHome(KELVARIS_PYTHON_VERSION);
  Config config;
  config.install_signal_handlers = 0; // Ctrl-C is the host's
  config.parse_argv = 0;
  config.set(&config.executable, python.executable);
  config.set(&config.program_name, python.executable);
  config.set(&config.home, python.prefix);
  struct sigaction interrupt;
  sigaction(SIGINT, nullptr, &interrupt);
  check(Py_InitializeFromConfig(&config));
  // This module alone takes Ctrl-C, whatever the configuration says, when it is imported first.
  Py_XDECREF(PyImport_ImportModule("signal"));
  PyErr_Clear();
  sigaction(SIGINT, &interrupt, nullptr);
  PyEval_SaveThread();
}

/// Text and type on the first line, then where it came from. Leaves nothing of Python behind.
std::string textOf(const py::error_already_set& error) {
  std::string text;
  try {
    text = py::cast<std::string>(error.type().attr("__name__"));
    if (const auto message = py::cast<std::string>(py::str(error.value())); !message.empty()) text += ": " + message;
    if (error.trace())
      for (const py::handle line : py::module_::import("traceback").attr("format_tb")(error.trace()))
        text += "\n" + py::cast<std::string>(py::str(line).attr("rstrip")());
  } catch (py::error_already_set&) {
    if (text.empty()) text = "an error whose text can't be told";
  }
  return text;
}

class EmbeddedInterpreter : public PythonInterpreter {
public:
  explicit EmbeddedInterpreter(const std::filesystem::path& modules) {
    const bool own = !Py_IsInitialized();
    if (own) start();
    guarded([&] {
      const py::module_ sys = py::module_::import("sys");
      if (own) {
        sys.attr("_kelvaris_host") = true; // the module leaves the log to the host
        sys.attr("path").attr("insert")(0, modules.string());
      }
      m_namespace = py::module_::import("types").attr("ModuleType")("kelvaris_host");
      m_namespace.attr("__builtins__") = py::module_::import("builtins");
      sys.attr("modules")["kelvaris_host"] = m_namespace; // so that what is defined there can be found by its name
    });
  }

  // The interpreter goes on until the process ends: modules such as numpy can't be started a second time.
  ~EmbeddedInterpreter() override {
    if (!Py_IsInitialized() || _Py_IsFinalizing()) {
      static_cast<void>(m_namespace.release());
      return;
    }
    const py::gil_scoped_acquire gil;
    m_namespace = {};
  }
  EmbeddedInterpreter(const EmbeddedInterpreter&) = delete;
  EmbeddedInterpreter& operator=(const EmbeddedInterpreter&) = delete;

  void execute(const std::string& statements) override {
    guarded([&] { run(statements, "exec", m_namespace.attr("__dict__")); });
  }

  std::vector<std::shared_ptr<Data>> evaluate(const std::string& expression,
                                              const std::map<std::string, std::shared_ptr<Data>>& variables) override {
    std::vector<std::shared_ptr<Data>> results;
    guarded([&] {
      const py::module_ module = py::module_::import("kelvaris");
      // A copy: functions of the namespace go on seeing the namespace itself.
      const py::dict scope = m_namespace.attr("__dict__").attr("copy")();
      for (const auto& [name, data] : variables) {
        const py::str variable(name);
        if (!py::cast<bool>(variable.attr("isidentifier")()) ||
            py::cast<bool>(py::module_::import("keyword").attr("iskeyword")(variable)))
          throw std::invalid_argument(fmt::format("\"{}\" is no name of a Python variable", name));
        scope[variable] = Python::toPython(data);
      }
      const py::object value = run(expression, "eval", scope);
      if (value.is_none()) return;
      if (!py::isinstance<py::list>(value) && !py::isinstance<py::tuple>(value)) {
        results.push_back(dataOf(value));
        return;
      }
      for (const py::handle element : value)
        results.push_back(element.is_none() ? nullptr : dataOf(element));
    });
    return results;
  }

private:
  /// `f()` under the GIL; what Python raises becomes a std::runtime_error that holds no object of Python.
  template <typename F> static void guarded(F&& f) {
    const py::gil_scoped_acquire gil;
    std::string text;
    try {
      f();
      flush();
      return;
    } catch (py::error_already_set& error) {
      text = textOf(error);
    }
    throw std::runtime_error(text);
  }

  static py::object run(const std::string& text, const char* mode, const py::object& scope) {
    const py::module_ builtins = py::module_::import("builtins");
    const py::object code = builtins.attr("compile")(text, "<host>", mode);
    return builtins.attr(mode)(code, scope);
  }

  /// The process may end without Python's own end.
  static void flush() {
    for (const char* stream : {"stdout", "stderr"})
      if (const py::object file = py::module_::import("sys").attr(stream); !file.is_none()) file.attr("flush")();
  }

  static std::shared_ptr<Data> dataOf(const py::handle& value) {
    if (py::isinstance<Data>(value)) return py::cast<std::shared_ptr<Data>>(value);
    throw std::runtime_error(fmt::format("The expression gave {} ({}); expected data of the module kelvaris, such as a "
                                         "SharedImageSet or a PointCloud, a list or tuple of them, or None",
                                         py::cast<std::string>(py::repr(value)),
                                         py::cast<std::string>(py::type::of(value).attr("__name__"))));
  }

  py::object m_namespace;
};

} // namespace
} // namespace Kelvaris

extern "C" __attribute__((visibility("default"))) std::unique_ptr<Kelvaris::PythonInterpreter>
kelvarisCreatePythonInterpreter(const std::filesystem::path& modules) {
  return std::make_unique<Kelvaris::EmbeddedInterpreter>(modules);
}
