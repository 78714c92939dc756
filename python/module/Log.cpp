#include "module/Log.h"

#include "Core/Log.h"
#include "module/Gil.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <thread>

namespace Kelvaris::Python {

namespace py = pybind11;

LoggedReasons::LoggedReasons(bool allThreads) : m_messages(std::make_shared<Messages>()) {
  const auto owner = std::this_thread::get_id();
  m_sink = Log::addSink([messages = m_messages, allThreads, owner](const Log::Entry& entry) {
    if (entry.level < Log::Warning || (!allThreads && std::this_thread::get_id() != owner)) return;
    const std::scoped_lock lock(messages->mutex);
    (entry.level >= Log::Error ? messages->errors : messages->warnings).push_back(entry.message);
  });
}

LoggedReasons::~LoggedReasons() {
  Log::removeSink(m_sink);
}

bool LoggedReasons::anyError() const {
  const std::scoped_lock lock(m_messages->mutex);
  return !m_messages->errors.empty();
}

std::string LoggedReasons::text() const {
  const std::scoped_lock lock(m_messages->mutex);
  const auto& messages = m_messages->errors.empty() ? m_messages->warnings : m_messages->errors;
  return messages.empty() ? "no reason was logged" : fmt::format("{}", fmt::join(messages, "; "));
}

namespace {

/// Hands log entries to Python's logging, under the logger "kelvaris.<category>".
class Forwarding {
public:
  Forwarding() {
    Log::setConsoleLevel(Log::Off);
    m_sink = Log::addSink([](const Log::Entry& entry) {
      runUnderGilLater([entry] {
        constexpr int levels[] = {5, 10, 20, 30, 40};
        const int level = levels[std::clamp<int>(entry.level, Log::Trace, Log::Error)];
        py::module_::import("logging")
            .attr("getLogger")("kelvaris." + entry.category)
            .attr("log")(level, "%s", entry.message);
      });
    });
  }
  ~Forwarding() {
    Log::removeSink(m_sink);
    const char* level = std::getenv("KELVARIS_LOG");
    Log::setConsoleLevel(level && *level >= '0' && *level <= '5' && level[1] == '\0' ? *level - '0' : Log::Info);
  }
  Forwarding(const Forwarding&) = delete;
  Forwarding& operator=(const Forwarding&) = delete;

private:
  int m_sink;
};

} // namespace

void bindLog(py::module_& module) {
  static std::optional<Forwarding> forwarding;
  module.def(
      "log_to_python",
      [](bool on) {
        if (!on) runPending();
        if (on != forwarding.has_value()) on ? void(forwarding.emplace()) : forwarding.reset();
      },
      py::arg("on") = true,
      "Sends the log to Python's logging, to loggers named kelvaris.<category>, instead of to standard error.\n\n"
      "On from the start in a Python of your own; off in one that a program of the host embeds. Entries of other\n"
      "threads arrive when the main thread next runs Python code.");
  // A host that embeds Python shows its log itself.
  if (!py::hasattr(py::module_::import("sys"), "_kelvaris_host")) forwarding.emplace();
  py::module_::import("atexit").attr("register")(py::cpp_function([] {
    runPending();
    forwarding.reset();
  }));
}

} // namespace Kelvaris::Python
