#include "Core/Log.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>

namespace Kelvaris::Log {
namespace {

class Logger {
public:
  static Logger& instance() {
    static Logger logger;
    return logger;
  }

  int addSink(Sink sink) {
    const std::scoped_lock lock(m_mutex);
    m_sinks[++m_lastId] = std::make_shared<Sink>(std::move(sink));
    return m_lastId;
  }

  void removeSink(int id) {
    const std::scoped_lock lock(m_mutex);
    m_sinks.erase(id);
  }

  void setConsoleLevel(int level) { m_console->set_level(static_cast<spdlog::level::level_enum>(toSpdlog(level))); }

  void write(const Entry& entry) {
    m_console->log(toSpdlog(entry.level), "{}: {}", entry.category, entry.message);
    std::map<int, std::shared_ptr<Sink>> sinks;
    {
      const std::scoped_lock lock(m_mutex);
      sinks = m_sinks;
    }
    for (const auto& [id, sink] : sinks)
      (*sink)(entry);
  }

private:
  Logger()
      : m_console(
            std::make_shared<spdlog::logger>("kelvaris", std::make_shared<spdlog::sinks::stderr_color_sink_mt>())) {
    m_console->set_pattern("%^%l%$ %v");
    const char* level = std::getenv("KELVARIS_LOG");
    setConsoleLevel(level && *level >= '0' && *level <= '5' && level[1] == '\0' ? *level - '0' : Info);
  }

  static spdlog::level::level_enum toSpdlog(int level) {
    switch (level) {
    case Trace:
      return spdlog::level::trace;
    case Debug:
      return spdlog::level::debug;
    case Info:
      return spdlog::level::info;
    case Warning:
      return spdlog::level::warn;
    case Error:
      return spdlog::level::err;
    default:
      return spdlog::level::off;
    }
  }

  std::shared_ptr<spdlog::logger> m_console;
  std::mutex m_mutex;
  std::map<int, std::shared_ptr<Sink>> m_sinks;
  int m_lastId = 0;
};

} // namespace

int addSink(Sink sink) {
  return Logger::instance().addSink(std::move(sink));
}

void removeSink(int id) {
  Logger::instance().removeSink(id);
}

void setConsoleLevel(int level) {
  Logger::instance().setConsoleLevel(level);
}

void write(int level, std::string_view category, std::string_view message) {
  Logger::instance().write({level, std::string(category), std::string(message)});
}

} // namespace Kelvaris::Log
