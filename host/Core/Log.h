#pragma once

#include <fmt/format.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>

/// The host's log: numeric level, category (the name of the class that speaks), message. Entries go to standard error
/// and to the sinks. All functions may be called from any thread.
namespace Kelvaris::Log {

enum Level : int { Trace = 0, Debug = 1, Info = 2, Warning = 3, Error = 4, Off = 5 };

struct Entry {
  int level;
  std::string category;
  std::string message;
};

using Sink = std::function<void(const Entry&)>;

/// Adds a sink that gets every entry, whatever the console's level. Returns its id for removeSink. A sink must not log.
int addSink(Sink sink);
void removeSink(int id);

/// Entries below `level` don't reach standard error (default: Info; the environment variable KELVARIS_LOG sets 0 to 5).
void setConsoleLevel(int level);

void write(int level, std::string_view category, std::string_view message);

template <typename... Args> void debug(std::string_view category, fmt::format_string<Args...> text, Args&&... args) {
  write(Debug, category, fmt::format(text, std::forward<Args>(args)...));
}
template <typename... Args> void info(std::string_view category, fmt::format_string<Args...> text, Args&&... args) {
  write(Info, category, fmt::format(text, std::forward<Args>(args)...));
}
template <typename... Args> void warning(std::string_view category, fmt::format_string<Args...> text, Args&&... args) {
  write(Warning, category, fmt::format(text, std::forward<Args>(args)...));
}
template <typename... Args> void error(std::string_view category, fmt::format_string<Args...> text, Args&&... args) {
  write(Error, category, fmt::format(text, std::forward<Args>(args)...));
}

} // namespace Kelvaris::Log
